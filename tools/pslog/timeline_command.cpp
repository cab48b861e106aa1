// pslog timeline: draws the pipeline over time.

#include <memory>
#include <stdexcept>

#include "commands.h"
#include "output.h"
#include "timeline.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    std::string svg;
    std::string trace;
    Choice choice;
    bool force = false;
};

int run(const Options& options) {
    if (options.svg == options.trace) throw std::runtime_error("--svg and --trace name the same file");
    OutputFile svg(options.svg, {options.log.name, options.trace}, options.force);
    OutputFile trace(options.trace, {options.log.name, options.svg}, options.force);
    Timeline timeline(options.choice);
    Interpreter interpreter(timeline);
    const Count count = readLog(options.log, interpreter);
    if (count.used == 0) return 1;
    if (timeline.isEmpty()) throw std::runtime_error("the log has nothing about these frames, tags, pipes or cameras");
    svg.write([&](std::ostream& out) { writeSvg(out, timeline, interpreter); });
    trace.write([&](std::ostream& out) { writeTrace(out, timeline, interpreter); });
    return resultOf(count);
}

}  // namespace

void addTimelineCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("timeline", "draw the frames around the worst flickers, or others",
                                     [options] { return run(*options); });
    command.option("--svg FILE", options->svg, "write a picture for a browser; '-' is standard output");
    command.option("--trace FILE", options->trace, "write JSON trace events, for a trace viewer");
    command.needsOneOf({"--svg", "--trace"});
    command.flag("--force", options->force, "replace a file even if it is neither a picture nor a trace");
    command.option("--around FRAME", options->choice.around, "draw this frame and its surroundings");
    command.option("--tag TAG", options->choice.tags,
                   "draw only this tag (number or name); may be given several times");
    command.option("--camera CAM", options->choice.cam, "draw only this camera");
    command.option("--pipe PIPE", options->choice.pipe, "draw only this pipe");
    command.option("--frames N", options->choice.frames, "draw at most this many frames of each camera", size_t{1},
                   size_t{100000});
    addLogInput(command, options->log);
}

}  // namespace pslog
