// pslog: reads the store's messages from a log and answers questions about what happened. See --help.

#include <CLI/CLI.hpp>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "frame_story.h"
#include "paramset.h"
#include "reader.h"
#include "summary.h"
#include "timeline.h"

using namespace pslog;

namespace {

struct Options {
    std::string log = "-";
    bool rate = false;
    int64_t cam = 0;
    int64_t pipe = 0;
    uint32_t frame = 0;
    std::string svg;
    std::string trace;
    size_t frames = 500;
    uint32_t last = THE_LAST - 1;
};

Count read(const Options& options, Interpreter& interpreter) {
    const Count count = readLog(options.log, interpreter);
    if (options.rate) {
        std::fprintf(stderr, "%" PRIu64 " lines in %.3f s, %.2f million per second\n", count.lines, count.seconds,
                     static_cast<double>(count.lines) / 1e6 / count.seconds);
    }
    if (count.used == 0) std::fprintf(stderr, "pslog: no message of the store in %s\n", options.log.c_str());
    return count;
}

int summary(const Options& options) {
    Summary summary;
    Interpreter interpreter(summary);
    const Count count = read(options, interpreter);
    summary.print(stdout, interpreter, count);
    return 0;
}

int frame(const Options& options) {
    FrameStory story(options.cam, options.pipe, options.frame);
    Interpreter interpreter(story);
    read(options, interpreter);
    if (story.print(stdout, interpreter)) return 0;
    std::fprintf(stderr, "pslog: nothing about this frame\n");
    return 1;
}

template <typename Write>
void writeFile(const std::string& name, Write write, const Timeline& timeline, const Interpreter& interpreter) {
    if (name.empty()) return;
    std::ofstream file(name);
    write(name == "-" ? std::cout : file, timeline, interpreter);
    file.close();
    if (file.fail()) throw std::runtime_error("cannot write " + name);
}

int timeline(const Options& options) {
    Timeline timeline(options.frames, options.last);
    Interpreter interpreter(timeline);
    read(options, interpreter);
    writeFile(options.svg, writeSvg, timeline, interpreter);
    writeFile(options.trace, writeTrace, timeline, interpreter);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Reads the messages of the parameter store from a log: the host's format, or the platform logger's\n"
        "brief, time or threadtime. Other lines are passed over. Most answers need a log of level 5.");
    app.require_subcommand(1);
    const auto add = [&](const char* name, const char* description) {
        CLI::App* command = app.add_subcommand(name, description);
        command->add_flag("--rate", options.rate, "tell on standard error how fast the log was read");
        return command;
    };
    CLI::App* summaryCommand =
        add("summary", "count what happened to each tag, and what retain numbers would have served");
    CLI::App* frameCommand = add("frame", "tell what happened to one frame, in time order");
    frameCommand->add_option("CAM", options.cam, "camera id")->required();
    frameCommand->add_option("PIPE", options.pipe, "pipe index")->required();
    frameCommand->add_option("FRAME", options.frame, "frame id")->required();
    CLI::App* timelineCommand = add("timeline", "draw the pipeline over time");
    timelineCommand->add_option("--svg", options.svg, "write a picture");
    timelineCommand->add_option("--trace", options.trace, "write JSON trace events, for a trace viewer");
    timelineCommand->add_option("--frames", options.frames, "most frames of a camera, the newest ones")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, size_t{100000}));
    timelineCommand->add_option("--last", options.last, "the last frame to show");
    for (CLI::App* command : {summaryCommand, frameCommand, timelineCommand}) {
        command->add_option("LOG", options.log, "the log; '-' is standard input")->capture_default_str();
    }
    timelineCommand->callback([&] {
        if (options.svg.empty() && options.trace.empty()) throw CLI::RequiredError("--svg or --trace");
    });
    CLI11_PARSE(app, argc, argv);

    try {
        const int result = *summaryCommand ? summary(options) : *frameCommand ? frame(options) : timeline(options);
        if (std::fflush(stdout) == 0) return result;
        std::perror("pslog");
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "pslog: %s\n", problem.what());
    }
    return 1;
}
