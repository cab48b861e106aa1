// See camera.h.

#include "camera.h"

#include <algorithm>
#include <cmath>

#include "scene.h"
#include "y4m.h"

namespace pipeline {

namespace {

constexpr double SCENE_FPS = 30;

std::unique_ptr<FrameSource> openSource(uint32_t camera, const Options& options, const Stop& stop) {
    if (!options.input.empty()) return std::make_unique<Y4mReader>(options.input, stop);
    return std::make_unique<Scene>(camera, options.fps > 0 ? options.fps : SCENE_FPS);
}

}  // namespace

Camera::Camera(uint32_t camera, const Options& options)
    : mStore(zarn::Camera{camera}),
      mSource(openSource(camera, options, mStop)),
      mPool(mSource->format(), BUFFER_COUNT) {}

void Camera::prepare(const Options& options) {
    if (!options.output.empty()) {
        mOutput.emplace(options.outputOf(id()));
        mWriter.emplace(mOutput->stream(), mOutput->name(), mSource->header());
    }
    mSensor =
        std::make_unique<Sensor>(contextOf(options, SENSOR), std::move(mSource), options.frames, options.fps, mStop);
    mStatistics = std::make_unique<StatisticsModule>(contextOf(options, STATISTICS_MODULE));
    mExposure = std::make_unique<Exposure>(contextOf(options, EXPOSURE));
    mIsp = std::make_unique<Isp>(contextOf(options, ISP), mWriter ? &*mWriter : nullptr);
    setFirstValues();
}

// Frame 0 answers the gets that come before the first value of a tag was delivered.
void Camera::setFirstValues() {
    mStore.set(FRAME_READY, 0, FrameReady{});
    mStore.set(STATISTICS, 0, Statistics{});
    mStore.set(GAIN, 0, Gain{{}, 1});
    mStore.set(HISTORY, 0, HistoryEntry{});
    mStore.set(RELEASED, 0, Released{});
    mStore.set(TUNING, 0, DEFAULT_TUNING);
}

// In real time (with --fps, --stall or --stage) modules continue without a late value, so that the tables show what was
// late. Otherwise they wait longer, which does no harm.
ModuleContext Camera::contextOf(const Options& options, ModuleName module) {
    ModuleContext context;
    context.camera = mStore.camera();
    context.pool = &mPool;
    context.name = module;
    context.staging = options.staging.get();
    context.stall = Wait(options.stallMs[module]);
    const bool stalled = std::any_of(options.stallMs.begin(), options.stallMs.end(), [](int ms) { return ms > 0; });
    context.realTime = stalled || options.fps > 0 || !options.staging->isEmpty();
    if (options.fps > 0) {
        const Wait interval(std::lround(std::ceil(1000 / options.fps)));
        context.frameWait = std::max(context.frameWait, 2 * interval);
    }
    if (options.frameWaitMs > 0) context.frameWait = Wait(options.frameWaitMs);
    return context;
}

void Camera::start() {
    for (Module* module : {static_cast<Module*>(mIsp.get()), static_cast<Module*>(mExposure.get()),
                           static_cast<Module*>(mStatistics.get()), static_cast<Module*>(mSensor.get())}) {
        mThreads.emplace_back(&Module::run, module);
    }
}

void Camera::join() {
    for (std::thread& thread : mThreads) thread.join();
}

// An error of the sensor does not matter here: if its input breaks off, the frames before are complete.
bool Camera::commit() {
    bool whole = failures() == 0 && mIsp->framesDone() > 0;
    for (const Module* module : modules()) whole = whole && (module == mSensor.get() || module->error().empty());
    if (whole && mOutput) mOutput->commit();
    return whole && mOutput;
}

void Camera::discard() {
    if (mOutput) mOutput->discard();
}

std::vector<const Module*> Camera::modules() const {
    return {mSensor.get(), mStatistics.get(), mExposure.get(), mIsp.get()};
}

std::vector<std::string> Camera::problems() const {
    std::vector<std::string> problems;
    for (const Module* module : modules()) {
        if (!module->error().empty()) problems.push_back(std::string(module->name()) + ": " + module->error());
    }
    if (failures() != 0) problems.push_back(std::to_string(failures()) + " calls of the store failed");
    return problems;
}

uint64_t Camera::failures() const {
    uint64_t failures = setUpTraffic().failures;
    for (const Module* module : modules()) failures += module->traffic().failures;
    return failures;
}

}  // namespace pipeline
