// See exposure.h. It erases the statistics, being the last to read them.

#include "exposure.h"

namespace pipeline {

// Who is late finds its frame erased, and frame 0 answers with the last erased one. The frame that was worked on when
// that one was erased is the next that somebody may still want a gain for.
void Exposure::process() {
    for (uint32_t frame = 1;; ++frame) {
        FrameReady ready = awaitFrame(frame);
        while (ready.end == 0 && ready.stamp.frame > frame) {
            const uint32_t next = ready.stamp.frame + static_cast<uint32_t>(FRAME_READY.kind().retain);
            mSkipped += next - frame;
            frame = next;
            ready = awaitFrame(frame);
        }
        if (ready.end != 0) return;
        deliverGain(frame);
        mStore.erase(STATISTICS_PIPE, frame);
    }
}

void Exposure::deliverGain(uint32_t frame) {
    Tuning tuning = DEFAULT_TUNING;
    mStore.get(TUNING, frame, tuning);
    Statistics statistics{};
    awaitValue(STATISTICS, frame, statistics, 1);
    HistoryEntry past{};
    if (frame > LOOK_BACK) mStore.get(HISTORY, frame - LOOK_BACK, past);

    const float gain = static_cast<float>(mController.update(tuning, statistics, past));
    mStore.deliver(GAIN, frame, Gain{{}, gain});
    mStore.set(HISTORY, frame, HistoryEntry{{}, statistics.meanY, gain});
}

}  // namespace pipeline
