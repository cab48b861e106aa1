// See exposure.h. This module erases the pipe of the statistics, because it is the last to read them.

#include "exposure.h"

#include <thread>

namespace pipeline {

// If this module is late, its frame may have been erased. Frame 0 then answers with the value of the newest erased
// frame. The ISP erases a frame when it has reached the one that is the retain number later. That later frame is the
// first that may still need a gain.
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
    if (mContext.staging->has(Fault::GONE, 0, frame)) removeFrame(frame);
    mStore.deliver(GAIN, frame, Gain{{}, gain});
    mStore.set(HISTORY, frame, HistoryEntry{{}, statistics.meanY, gain});
}

// Sleeps first, so that the ISP already waits for the gain in the frame. The frame has no value yet, so the erase of
// another tag removes it.
void Exposure::removeFrame(uint32_t frame) {
    std::this_thread::sleep_for(Wait(DEFAULT_WAIT_MS / 2));
    mStore.set(MARKER, frame - 1, Marker{});
    mStore.erase(EXPOSURE_PIPE, frame + static_cast<uint32_t>(MARKER.kind().retain));
    mContext.staging->note(Fault::GONE, 0, frame);
}

}  // namespace pipeline
