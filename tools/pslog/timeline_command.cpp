// pslog timeline: draws the pipeline over time.

#include <memory>
#include <stdexcept>

#include "commands.h"
#include "output.h"
#include "paramset.h"
#include "timeline.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    std::string svg;
    std::string trace;
    size_t frames = 500;
    uint32_t last = THE_LAST - 1;
    bool force = false;
};

int run(const Options& options) {
    if (options.svg == options.trace) throw std::runtime_error("--svg and --trace name the same place");
    OutputFile svg(options.svg, {options.log.name, options.trace}, options.force);
    OutputFile trace(options.trace, {options.log.name, options.svg}, options.force);
    Timeline timeline(options.frames, options.last);
    Interpreter interpreter(timeline);
    if (readLog(options.log, interpreter).used == 0) return 1;
    svg.write([&](std::ostream& out) { writeSvg(out, timeline, interpreter); });
    trace.write([&](std::ostream& out) { writeTrace(out, timeline, interpreter); });
    return 0;
}

}  // namespace

void addTimelineCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("timeline", "draw the pipeline over time", [options] { return run(*options); });
    command.option("--svg", options->svg, "write a picture; '-' is standard output");
    command.option("--trace", options->trace, "write JSON trace events, for a trace viewer");
    command.needsOneOf({"--svg", "--trace"});
    command.flag("--force", options->force, "replace a file that is no picture and no trace");
    command.option("--frames", options->frames, "most frames of a camera, the newest ones", size_t{1}, size_t{100000});
    command.option("--last", options->last, "the last frame to show");
    addLogInput(command, options->log);
}

}  // namespace pslog
