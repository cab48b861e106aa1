// pslog flickers: lists the reads that did not get their frame's own value in time, and why.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include "commands.h"
#include "flicker_finder.h"
#include "flicker_json.h"
#include "flicker_text.h"
#include "json_output.h"
#include "names.h"
#include "text.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    bool json = false;
    size_t most = 1000;
};

std::string orQuestion(int64_t number) {
    return number == UNKNOWN ? "?" : std::to_string(number);
}

void print(const std::vector<Flicker>& flickers, const FlickerFinder& finder, const FlickerText& text) {
    for (const Flicker& flicker : flickers) {
        std::printf("%s cam %s frame %-6u %s %s %s\n", padded(text.whenOf(flicker.timeUs, flicker.line), 18).c_str(),
                    orQuestion(flicker.key.cam).c_str(), flicker.frame, padded(text.tagOf(flicker.key), 12).c_str(),
                    padded(text.answerOf(flicker), 26).c_str(), text.causeOf(flicker).c_str());
    }
    uint64_t total = 0;
    for (const uint64_t count : finder.counts()) total += count;
    std::printf("%s%" PRIu64 " %s\n", total > 0 ? "\n" : "", total, total == 1 ? "flicker" : "flickers");
    for (size_t cause = CAUSE_COUNT; cause-- > 0;) {
        if (finder.counts()[cause] == 0) continue;
        std::printf("%7" PRIu64 "  %s\n", finder.counts()[cause], nameOf(static_cast<Cause>(cause)));
    }
}

void printAsJson(const std::vector<Flicker>& flickers, const FlickerFinder& finder, const FlickerText& text) {
    nlohmann::json json = {{"flickers", nlohmann::json::array()}, {"causes", nlohmann::json::object()}};
    for (const Flicker& flicker : flickers) json["flickers"].push_back(jsonOf(flicker, text));
    for (size_t cause = 0; cause < CAUSE_COUNT; ++cause) {
        if (finder.counts()[cause] > 0) json["causes"][nameOf(static_cast<Cause>(cause))] = finder.counts()[cause];
    }
    printJson(stdout, json, 2);
}

int run(const Options& options) {
    FlickerFinder finder(options.most);
    Interpreter interpreter(finder);
    const Count count = readLog(options.log, interpreter);
    if (count.used == 0 && !options.json) return 1;
    std::vector<Flicker> flickers = finder.flickers();
    std::sort(flickers.begin(), flickers.end(), isWorse);
    (options.json ? printAsJson : print)(flickers, finder, FlickerText(finder, interpreter));
    if (!finder.hasCauses() && count.used > 0) {
        std::fprintf(stderr, "pslog: most causes need a log of level 5, this one has %d: %s\n", count.level(),
                     MORE_LEVELS);
    }
    return resultOf(count);
}

}  // namespace

void addFlickersCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("flickers", "list the reads that did not get their frame's value in time, and why",
                                     [options] { return run(*options); });
    command.flag("--json", options->json, "print JSON");
    command.option("--most N", options->most, "print at most this many", size_t{1}, size_t{100000});
    addLogInput(command, options->log);
}

}  // namespace pslog
