// pslog summary: counts what happened to each tag.

#include <memory>

#include "commands.h"
#include "summary.h"

namespace pslog {

namespace {

int run(const LogInput& log) {
    Summary summary;
    Interpreter interpreter(summary);
    const Count count = readLog(log, interpreter);
    summary.print(stdout, interpreter, count);
    return resultOf(count);
}

}  // namespace

void addSummaryCommand(Program& program) {
    const auto log = std::make_shared<LogInput>();
    Subcommand command =
        program.add("summary", "count what happened to each tag, and what retain numbers would have served",
                    [log] { return run(*log); });
    addLogInput(command, *log);
}

}  // namespace pslog
