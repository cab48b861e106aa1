// See sensor.h. A buffer is filled again only after the statistics of its last frame were delivered and the ISP has
// released it. So a late module slows the sensor down, and no frame is lost.

#include "sensor.h"

#include <stdexcept>

namespace pipeline {

namespace {

/// The sensor's settings in the metadata. They never change; only the scene's light does.
constexpr uint32_t EXPOSURE_US = 10000;
constexpr float SENSOR_GAIN = 1;

}  // namespace

// However the stream ends, the last frame-ready value tells the other modules.
void Sensor::process() {
    mStartNs = steadyNs();
    uint32_t frame = 1;
    try {
        while (frame <= mFrames && deliverFrame(frame)) ++frame;
    } catch (const std::exception& problem) {
        if (!mStop.requested()) mError = problem.what();
    }
    mStore.deliver(FRAME_READY, frame, FrameReady{{}, 0, 1});
}

bool Sensor::deliverFrame(uint32_t frame) {
    const uint32_t buffers = mContext.pool->size();
    const uint32_t buffer = (frame - 1) % buffers;
    if (frame > buffers && !awaitBuffer(frame - buffers)) return false;
    if (!pace(frame)) return false;
    stall(frame);
    if (mContext.staging->happens(Fault::END, 0, frame)) {
        zarn::ParamSet::destroyInstance();
        return false;
    }
    if (!mSource->read(mContext.pool->at(buffer))) return false;
    mStore.setMetadata({frame, EXPOSURE_US, SENSOR_GAIN, steadyNs()});
    mStore.deliver(FRAME_READY, frame, FrameReady{{}, buffer, 0});
    return true;
}

bool Sensor::awaitBuffer(uint32_t lastUser) {
    Statistics statistics{};
    Released released{};
    bool measured = false;
    bool processed = false;
    for (int i = 0; i < patience() && !(measured && processed); ++i) {
        if (!measured) measured = mStore.await(STATISTICS, lastUser, statistics) == AnsweredBy::ITSELF;
        if (!processed) processed = mStore.await(RELEASED, lastUser, released) == AnsweredBy::ITSELF;
    }
    if (!(measured && processed) && mContext.staging->isEmpty()) {
        throw std::runtime_error("the buffer of frame " + std::to_string(lastUser) + " did not come back");
    }
    return released.abort == 0;
}

bool Sensor::pace(uint32_t frame) const {
    if (mFps == 0) return !mStop.requested();
    return mStop.sleepUntil(mStartNs + static_cast<int64_t>((frame - 1) * 1e9 / mFps));
}

}  // namespace pipeline
