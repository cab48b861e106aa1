// See statistics.h.

#include "statistics.h"

#include "image.h"

namespace pipeline {

// No frame is skipped, because the sensor waits for the statistics of each frame before it uses the buffer again.
void StatisticsModule::process() {
    for (uint32_t frame = 1;; ++frame) {
        const FrameReady ready = awaitFrame(frame);
        if (ready.end != 0) return;
        mStore.deliver(STATISTICS, frame, measure(mContext.pool->at(ready.buffer)));
    }
}

}  // namespace pipeline
