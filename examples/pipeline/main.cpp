// A camera pipeline of four modules per camera that exchange values only through the parameter store. See --help.

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "camera.h"
#include "options.h"
#include "platform/host/host_platform.h"
#include "processor.h"
#include "report.h"

using namespace pipeline;

namespace {

using Cameras = std::vector<std::unique_ptr<Camera>>;

constexpr int OK = 0;
constexpr int FAILED = 1;
constexpr int WRONG_USAGE = 2;
constexpr int INTERRUPTED = 130;  // the exit status that a shell reports for a program that SIGINT ended

sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
    return signals;
}

void printProgress(const Cameras& cameras, uint32_t frames, bool known, double seconds) {
    uint32_t done = frames;
    for (const auto& camera : cameras) done = std::min(done, camera->isp().framesDone());
    const std::string of = known ? " of " + std::to_string(frames) : "";
    std::fprintf(stderr, "\rframe %u%s, %.1f per second ", done, of.c_str(), done / seconds);
}

/// Removes the unfinished output files, and then ends the process as the signal would have done.
[[noreturn]] void endBy(int signal, const Cameras& cameras) {
    for (const auto& camera : cameras) camera->discard();
    ::signal(signal, SIG_DFL);
    const sigset_t signals = endingSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    raise(signal);
    std::_Exit(FAILED);
}

/// The first SIGINT stops the cameras. Any other signal ends the process.
void handle(int signal, const Cameras& cameras, bool& interrupted) {
    if (signal != SIGINT || interrupted) endBy(signal, cameras);
    interrupted = true;
    const char* line = isatty(STDERR_FILENO) != 0 ? "\r\033[K" : "";
    std::fprintf(stderr, "%spipeline: interrupted, finishing the current frames; Ctrl-C again ends at once\n", line);
    for (const auto& camera : cameras) camera->stop();
}

/// Runs the cameras until they have ended or are interrupted. Returns the seconds that it took.
double runCameras(const Cameras& cameras, const Options& options, bool& interrupted) {
    const int64_t startNs = steadyNs();
    const auto elapsed = [startNs] { return static_cast<double>(steadyNs() - startNs) / 1e9; };
    for (const auto& camera : cameras) camera->start();
    const auto joined = std::async(std::launch::async, [&cameras] {
        for (const auto& camera : cameras) camera->join();
    });

    const bool terminal = isatty(STDERR_FILENO) != 0;
    const sigset_t signals = endingSignals();
    while (joined.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
        const timespec now{};
        const int signal = sigtimedwait(&signals, nullptr, &now);
        if (signal > 0) handle(signal, cameras, interrupted);
        if (terminal) printProgress(cameras, options.frames, options.input.empty(), elapsed());
    }
    if (terminal) std::fprintf(stderr, "\r\033[K");
    return elapsed();
}

bool complain(const Cameras& cameras) {
    bool anything = false;
    for (const auto& camera : cameras) {
        for (const std::string& problem : camera->problems()) {
            std::fprintf(stderr, "pipeline: camera %u: %s\n", camera->id(), problem.c_str());
            anything = true;
        }
    }
    if (host::liveMetadata() != 0) {
        std::fprintf(stderr, "pipeline: %zu metadata records were not freed\n", host::liveMetadata());
        anything = true;
    }
    return anything;
}

/// Puts the outputs in place. If a stream was cut short, prints how many frames its output has.
void commit(const Cameras& cameras, bool cutShort) {
    for (const auto& camera : cameras) {
        if (!camera->commit() || !cutShort) continue;
        std::fprintf(stderr, "pipeline: camera %u: frames kept in %s: %u\n", camera->id(), camera->outputName().c_str(),
                     camera->isp().framesDone());
    }
}

int run(const Options& options) {
    if (std::getenv("PARAMSET_LOG") == nullptr) host::setLogLevel(1);
    signal(SIGPIPE, SIG_IGN);
    Cameras cameras;
    for (uint32_t id = 0; id < options.cameras; ++id) cameras.push_back(std::make_unique<Camera>(id, options));

    // Blocked, because from here on an ending signal must first remove the unfinished output files.
    const sigset_t signals = endingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::array<Processor, MAX_CAM_NUM> processors{};
    zarn::ParamSet* store = zarn::ParamSet::createInstance();
    registerTags(*options.staging);
    installProcessors(*store, processors.data());
    for (const auto& camera : cameras) camera->prepare(options);
    bool interrupted = false;
    const double seconds = runCameras(cameras, options, interrupted);
    zarn::ParamSet::destroyInstance();

    std::FILE* out = options.output == "-" ? stderr : stdout;
    const bool failed = complain(cameras);
    commit(cameras, failed || interrupted);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    for (const auto& camera : cameras) printReport(out, *camera, seconds);
    for (const std::string& note : options.staging->notes()) std::fprintf(out, "staged: %s\n", note.c_str());
    if (std::fflush(out) != 0) {
        std::perror("pipeline: cannot print the tables");
        return FAILED;
    }
    if (interrupted) return INTERRUPTED;
    return failed ? FAILED : OK;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = parseOptions(argc, argv);
        if (!options.help) return run(options);
        return std::fputs(USAGE, stdout) < 0 || std::fflush(stdout) != 0 ? FAILED : OK;
    } catch (const UsageError& problem) {
        std::fprintf(stderr, "pipeline: %s; try --help\n", problem.what());
        return WRONG_USAGE;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "pipeline: %s\n", problem.what());
        return FAILED;
    }
}
