// pslog summary: counts what happened to each tag.

#include <memory>

#include "commands.h"
#include "summary.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    bool json = false;
};

int run(const Options& options) {
    TagCounts counts;
    Interpreter interpreter(counts);
    const Count count = readLog(options.log, interpreter);
    if (count.used == 0 && !options.json) return 1;
    (options.json ? printSummaryJson : printSummary)(stdout, counts, interpreter, count);
    return resultOf(count);
}

}  // namespace

void addSummaryCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("summary", "count what happened to each tag, and show the retain numbers needed",
                                     [options] { return run(*options); });
    command.flag("--json", options->json, "print JSON");
    addLogInput(command, options->log);
}

}  // namespace pslog
