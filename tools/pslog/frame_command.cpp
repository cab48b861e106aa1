// pslog frame: shows what happened to one frame.

#include <cstdio>
#include <memory>

#include "commands.h"
#include "frame_story.h"
#include "json_output.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    int64_t cam = 0;
    int64_t pipe = 0;
    uint32_t frame = 0;
    bool json = false;
};

void printStoryJson(const FrameStory& story, const Options& options, const Interpreter& interpreter,
                    const Count& count) {
    nlohmann::json result = {{"camera", options.cam}, {"pipe", options.pipe}, {"frame", options.frame}};
    result["log"] = jsonOf(count);
    result["has_times"] = interpreter.hasTimes();
    result["happenings"] = nlohmann::json::array();
    const auto happenings = story.happenings();
    for (const FrameStory::Happening& happening : happenings) {
        nlohmann::json entry = {{"line", happening.line}, {"text", happening.text}};
        entry["ms"] = static_cast<double>(happening.timeUs - happenings.front().timeUs) / 1e3;
        entry["thread"] = happening.thread == 0 ? nlohmann::json() : nlohmann::json(happening.thread);
        result["happenings"].push_back(entry);
    }
    printJson(stdout, result, 2);
}

int run(const Options& options) {
    FrameStory story(options.cam, options.pipe, options.frame);
    Interpreter interpreter(story);
    const Count count = readLog(options.log, interpreter);
    if (count.used == 0) return 1;
    if (story.happenings().empty()) {
        std::fprintf(stderr, "pslog: nothing about frame %u of camera %d, pipe %d\n", options.frame,
                     static_cast<int>(options.cam), static_cast<int>(options.pipe));
        return 1;
    }
    if (options.json) printStoryJson(story, options, interpreter, count);
    if (!options.json) story.print(stdout, interpreter);
    return resultOf(count);
}

}  // namespace

void addFrameCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("frame", "show what happened to one frame of a pipe, in time order",
                                     [options] { return run(*options); });
    command.option("CAM", options->cam, "camera id").required();
    command.option("PIPE", options->pipe, "pipe index").required();
    command.option("FRAME", options->frame, "frame id").required();
    command.flag("--json", options->json, "print JSON");
    addLogInput(command, options->log);
}

}  // namespace pslog
