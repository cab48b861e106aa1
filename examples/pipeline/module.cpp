// See module.h.

#include "module.h"

#include <exception>
#include <thread>

namespace pipeline {

void Module::run() noexcept {
    try {
        process();
    } catch (const std::exception& problem) {
        mError = problem.what();
    }
}

// Waits without a bound: a camera may pause, and however the stream ends, the sensor announces its end.
FrameReady Module::awaitFrame(uint32_t frame) {
    FrameReady ready{};
    for (;;) {
        const AnsweredBy by = mStore.await(FRAME_READY, frame, ready, mContext.frameWait);
        if (by == AnsweredBy::NOBODY) ready.end = 1;
        if (by == AnsweredBy::NOBODY || ready.stamp.frame >= frame) break;
    }
    if (ready.end == 0 && ready.stamp.frame == frame) stall(frame);
    return ready;
}

void Module::stall(uint32_t frame) const {
    std::this_thread::sleep_for(mContext.stall);
    int ms = 0;
    if (!mContext.staging->has(Fault::STALL, 0, frame, mContext.name, &ms)) return;
    std::this_thread::sleep_for(Wait(ms));
    mContext.staging->note(Fault::STALL, 0, frame, mContext.name, ms);
}

}  // namespace pipeline
