// pslog frame: tells what happened to one frame.

#include <cstdio>
#include <memory>

#include "commands.h"
#include "frame_story.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    int64_t cam = 0;
    int64_t pipe = 0;
    uint32_t frame = 0;
};

int run(const Options& options) {
    FrameStory story(options.cam, options.pipe, options.frame);
    Interpreter interpreter(story);
    readLog(options.log, interpreter);
    if (story.print(stdout, interpreter)) return 0;
    std::fprintf(stderr, "pslog: nothing about this frame\n");
    return 1;
}

}  // namespace

void addFrameCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command =
        program.add("frame", "tell what happened to one frame, in time order", [options] { return run(*options); });
    command.option("CAM", options->cam, "camera id").required();
    command.option("PIPE", options->pipe, "pipe index").required();
    command.option("FRAME", options->frame, "frame id").required();
    addLogInput(command, options->log);
}

}  // namespace pslog
