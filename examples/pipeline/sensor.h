// The sensor: fills buffers from its source, at its pace, and announces each frame.

#ifndef PIPELINE_SENSOR_H
#define PIPELINE_SENSOR_H

#include <memory>

#include "module.h"
#include "stop.h"

namespace pipeline {

class Sensor : public Module {
public:
    /// @param frames  frames to deliver at most
    /// @param fps     pace; 0 is as fast as the buffers come back
    /// @param stop    a request there ends the stream after the current frame
    Sensor(const ModuleContext& context, std::unique_ptr<FrameSource> source, uint32_t frames, double fps,
           const Stop& stop)
        : Module(context), mSource(std::move(source)), mFrames(frames), mFps(fps), mStop(stop) {}

private:
    void process() override;
    bool deliverFrame(uint32_t frame);
    bool awaitBuffer(uint32_t lastUser);

    /// Waits until the frame is due. False if a stop was requested before that.
    bool pace(uint32_t frame) const;

    std::unique_ptr<FrameSource> mSource;
    uint32_t mFrames;
    double mFps;
    const Stop& mStop;
    int64_t mStartNs = 0;
};

}  // namespace pipeline

#endif  // PIPELINE_SENSOR_H
