// pslog flickers: the reads that were not answered by their frame's own value, or not in time, and why.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "flicker_finder.h"
#include "flicker_text.h"
#include "text.h"

namespace pslog {

namespace {

using Json = nlohmann::ordered_json;

struct Options {
    LogInput log;
    bool json = false;
    size_t most = 1000;
};

std::string orQuestion(int64_t number) {
    return number == UNKNOWN ? "?" : std::to_string(number);
}

Json orNull(int64_t number) {
    return number == UNKNOWN ? Json() : Json(number);
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

Json jsonOf(const Reason& reason, const FlickerText& text) {
    Json json = {{"cause", nameOf(reason.cause)},
                 {"tag", orNull(reason.key.tag)},
                 {"name", text.tagOf(reason.key)},
                 {"frame", reason.frame}};
    const auto add = [&json](const char* name, int64_t number, bool isKnown) {
        if (isKnown) json[name] = number;
    };
    if (reason.orElse != Cause::NOT_KNOWN) json["or_else"] = nameOf(reason.orElse);
    const std::string thread = text.threadOf(reason.thread);
    if (!thread.empty()) json["whose"] = thread;
    add("late_us", reason.lateUs, reason.lateUs != UNKNOWN);
    add("waited_us", reason.waitUs, reason.waitUs != UNKNOWN);
    add("busy_us", reason.busyUs, reason.busyUs != UNKNOWN);
    add("busy_frame", reason.busyFrame, reason.busyFrame != 0);
    add("retain", reason.retain, reason.retain != UNKNOWN);
    add("line", static_cast<int64_t>(reason.line), reason.line != 0);
    return json;
}

Json jsonOf(const Flicker& flicker, const FlickerText& text) {
    static constexpr const char* ANSWERS[] = {"not known", "itself", "earlier", "frame 0"};
    const std::optional<int64_t> off = flicker.framesOff();
    const bool isAnswered = !flicker.failed && flicker.answer != Answer::NOT_KNOWN;
    Json chain = Json::array();
    for (const Reason& reason : flicker.chain) chain.push_back(jsonOf(reason, text));
    return {{"when", text.whenOf(flicker.timeUs, flicker.line)},
            {"line", flicker.line},
            {"camera", orNull(flicker.key.cam)},
            {"pipe", orNull(flicker.key.pipe)},
            {"tag", orNull(flicker.key.tag)},
            {"name", text.tagOf(flicker.key)},
            {"frame", flicker.frame},
            {"reader", text.threadOf(flicker.thread)},
            {"answer", flicker.failed ? "nothing" : ANSWERS[static_cast<int>(flicker.answer)]},
            {"answered_by", flicker.answeredBy == 0 ? Json() : Json(flicker.answeredBy)},
            {"frames_off", isAnswered && off ? Json(*off) : Json()},
            {"time_outs", flicker.timeOuts},
            {"waited_ms", orNull(flicker.waitMs)},
            {"cause", nameOf(flicker.root().cause)},
            {"story", text.storyOf(flicker)},
            {"advice", text.adviceFor(flicker)},
            {"chain", std::move(chain)}};
}

void printJson(const std::vector<Flicker>& flickers, const FlickerFinder& finder, const FlickerText& text) {
    Json json = {{"flickers", Json::array()}, {"causes", Json::object()}};
    for (const Flicker& flicker : flickers) json["flickers"].push_back(jsonOf(flicker, text));
    for (size_t cause = 0; cause < CAUSE_COUNT; ++cause) {
        if (finder.counts()[cause] > 0) json["causes"][nameOf(static_cast<Cause>(cause))] = finder.counts()[cause];
    }
    std::printf("%s\n", json.dump(2).c_str());
}

int run(const Options& options) {
    FlickerFinder finder(options.most);
    Interpreter interpreter(finder);
    const Count count = readLog(options.log, interpreter);
    std::vector<Flicker> flickers = finder.flickers();
    std::sort(flickers.begin(), flickers.end(), isWorse);
    (options.json ? printJson : print)(flickers, finder, FlickerText(finder, interpreter));
    if (!finder.hasCauses() && count.used > 0) {
        std::fprintf(stderr, "pslog: most causes need a log of level 5, this has %d: %s\n", count.level(), MORE_LEVELS);
    }
    return count.used == 0 ? 1 : 0;
}

}  // namespace

void addFlickersCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("flickers", "name the reads that were not served, the worst first, and why",
                                     [options] { return run(*options); });
    command.flag("--json", options->json, "print JSON");
    command.option("--most", options->most, "how many to print", size_t{1}, size_t{100000});
    addLogInput(command, options->log);
}

}  // namespace pslog
