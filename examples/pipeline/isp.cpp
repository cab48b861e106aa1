// See isp.h. This module erases all pipes but that of the statistics: its frame is the oldest that any module should
// still be working on.

#include "isp.h"

#include "image.h"
#include "processor.h"

namespace pipeline {

Isp::Isp(const ModuleContext& context, Y4mWriter* output)
    : Module(context), mOutput(output), mProcessed(context.pool->format()) {}

// If the output fails, the frames that are already on their way are not processed. Their buffers are returned to the
// sensor with a flag that tells it to stop.
void Isp::process() {
    for (uint32_t frame = 1;; ++frame) {
        const FrameReady ready = awaitFrame(frame);
        if (ready.end != 0) break;
        try {
            if (mError.empty()) processFrame(frame, mContext.pool->at(ready.buffer));
        } catch (const std::exception& problem) {
            mError = problem.what();
        }
        mStore.deliver(RELEASED, frame, Released{{}, mError.empty() ? 0u : 1u});
        for (const zarn::Pipe pipe : {FRAME_PIPE, EXPOSURE_PIPE, ISP_PIPE}) mStore.erase(pipe, frame);
        mFramesDone.store(frame, std::memory_order_relaxed);
    }
    if (mOutput != nullptr) mOutput->flush();
}

// The pixels are not changed in place, because a late statistics module may still be measuring them.
void Isp::processFrame(uint32_t frame, const Frame& in) {
    const double gain = programGain(frame);
    mMeanLuma.push_back(applyGain(GainTable(gain), in, mProcessed));
    if (mOutput != nullptr) mOutput->write(mProcessed);
    FrameMetadata metadata{};
    if (!mStore.getMetadata(frame, metadata)) return;
    mLatencyMs.push_back(static_cast<double>(steadyNs() - metadata.timestampNs) / 1e6);
}

// Waits twice, so that exposure has time for its own wait and fall-back. The processor rounds the gain, so its value is
// read back and applied.
double Isp::programGain(uint32_t frame) {
    Gain gain{};
    awaitValue(GAIN, frame, gain, 2);
    mStore.command(PROGRAM_GAIN, &gain.gain, nullptr);
    mProgrammed = readBack(PROGRAM_COUNT_REGISTER);
    return readBack(GAIN_REGISTER) * GAIN_STEP;
}

uint32_t Isp::readBack(uint32_t number) {
    uint32_t value = 0;
    mStore.command(READ_REGISTER, &number, &value);
    return value;
}

}  // namespace pipeline
