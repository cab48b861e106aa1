// One camera: its buffers, its four modules and their threads. Only this class knows more than one module.

#ifndef PIPELINE_CAMERA_H
#define PIPELINE_CAMERA_H

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "exposure.h"
#include "frame.h"
#include "isp.h"
#include "options.h"
#include "output_file.h"
#include "sensor.h"
#include "statistics.h"
#include "stop.h"

namespace pipeline {

class Camera {
public:
    /// Opens the camera's source; throws std::runtime_error if that fails.
    Camera(uint32_t camera, const Options& options);

    /// Opens the output, creates the modules and gives every tag its first value. The store must exist, and the tags
    /// must be registered. Throws std::runtime_error if the output cannot be opened.
    void prepare(const Options& options);

    void start();
    void join();

    /// Ends the stream after the sensor's current frame. May be called while the threads are running.
    void stop() { mStop.request(); }

    /// Keeps the output if all its frames were processed and there is at least one. Returns whether it was kept. Throws
    /// std::runtime_error if it cannot be written. Call it after the threads have ended.
    bool commit();

    /// Removes the output. May be called while the threads are running.
    void discard();

    /// Empty if there is none.
    std::string outputName() const { return mOutput ? mOutput->name() : ""; }

    uint32_t id() const { return mStore.camera().number(); }
    const FrameFormat& format() const { return mPool.format(); }
    const Traffic& setUpTraffic() const { return mStore.traffic(); }
    std::vector<const Module*> modules() const;
    const Exposure& exposure() const { return *mExposure; }
    const Isp& isp() const { return *mIsp; }

    /// One line for each thing that went wrong. Call it after the threads have ended.
    std::vector<std::string> problems() const;

private:
    void setFirstValues();
    uint64_t failures() const;
    ModuleContext contextOf(const Options& options, ModuleName module);

    StoreClient mStore;
    Stop mStop;
    std::unique_ptr<FrameSource> mSource;  // null after it was moved to the sensor
    FramePool mPool;
    std::optional<OutputFile> mOutput;
    std::optional<Y4mWriter> mWriter;
    std::unique_ptr<Sensor> mSensor;
    std::unique_ptr<StatisticsModule> mStatistics;
    std::unique_ptr<Exposure> mExposure;
    std::unique_ptr<Isp> mIsp;
    std::vector<std::thread> mThreads;
};

}  // namespace pipeline

#endif  // PIPELINE_CAMERA_H
