// The ISP: programs the external processor with the gain of each frame, applies it and writes the frame out.

#ifndef PIPELINE_ISP_H
#define PIPELINE_ISP_H

#include <atomic>
#include <vector>

#include "module.h"
#include "y4m.h"

namespace pipeline {

class Isp : public Module {
public:
    /// @param output  the frames are written there; null: not written; not owned
    Isp(const ModuleContext& context, Y4mWriter* output);

    uint32_t framesDone() const { return mFramesDone.load(std::memory_order_relaxed); }  ///< thread-safe
    uint32_t programmed() const { return mProgrammed; }  ///< how often the processor was programmed, by its own count
    const std::vector<double>& meanLuma() const { return mMeanLuma; }    ///< of each output frame
    const std::vector<double>& latencyMs() const { return mLatencyMs; }  ///< from sensor to output

private:
    void process() override;
    void processFrame(uint32_t frame, const Frame& in);
    double programGain(uint32_t frame);
    uint32_t readBack(uint32_t number);

    Y4mWriter* mOutput;
    Frame mProcessed;
    std::atomic<uint32_t> mFramesDone{0};
    uint32_t mProgrammed = 0;
    std::vector<double> mMeanLuma;
    std::vector<double> mLatencyMs;
};

}  // namespace pipeline

#endif  // PIPELINE_ISP_H
