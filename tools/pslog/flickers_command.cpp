// pslog flickers: the reads that were not answered by their frame's own value, or not in time, and why.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include "commands.h"
#include "flicker_finder.h"
#include "flicker_text.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    size_t most = 1000;
};

std::vector<Flicker> worstFirst(const FlickerFinder& finder) {
    std::vector<Flicker> flickers = finder.flickers();
    std::sort(flickers.begin(), flickers.end(), isWorse);
    return flickers;
}

std::string orQuestion(int64_t number) {
    return number == UNKNOWN ? "?" : std::to_string(number);
}

void print(const FlickerFinder& finder, const FlickerText& text) {
    for (const Flicker& flicker : worstFirst(finder)) {
        std::printf("%-18s  cam %s  frame %-6u %-14s %-28s  %s\n", text.whenOf(flicker.timeUs, flicker.line).c_str(),
                    orQuestion(flicker.key.cam).c_str(), flicker.frame, text.tagOf(flicker.key).c_str(),
                    text.answerOf(flicker).c_str(), text.causeOf(flicker).c_str());
    }
    uint64_t total = 0;
    for (const uint64_t count : finder.counts()) total += count;
    std::printf("%s%" PRIu64 " flickers\n", total > 0 ? "\n" : "", total);
    for (size_t cause = CAUSE_COUNT; cause-- > 0;) {
        if (finder.counts()[cause] == 0) continue;
        std::printf("%7" PRIu64 "  %s\n", finder.counts()[cause], nameOf(static_cast<Cause>(cause)));
    }
}

int run(const Options& options) {
    FlickerFinder finder(options.most);
    Interpreter interpreter(finder);
    const Count count = readLog(options.log, interpreter);
    const FlickerText text(finder, interpreter);
    print(finder, text);
    return count.used == 0 ? 1 : 0;
}

}  // namespace

void addFlickersCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("flickers", "name the reads that were not served, the worst first, and why",
                                     [options] { return run(*options); });
    command.option("--most", options->most, "how many to print", size_t{1}, size_t{100000});
    addLogInput(command, options->log);
}

}  // namespace pslog
