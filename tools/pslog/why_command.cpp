// pslog why: what happened to a frame in all pipes, and why its reads did not get their own values in time.

#include <cstdio>
#include <memory>

#include "commands.h"
#include "flicker_finder.h"
#include "flicker_json.h"
#include "flicker_text.h"
#include "frame_story.h"
#include "json_output.h"
#include "names.h"
#include "text.h"

namespace pslog {

namespace {

struct Options {
    LogInput log;
    int64_t cam = 0;
    uint32_t frame = 0;
    bool json = false;
};

class Both : public Listener {
public:
    Both(Listener& first, Listener& second) : mFirst(first), mSecond(second) {}

    void take(const Event& event, const Tags& tags) override {
        mFirst.take(event, tags);
        mSecond.take(event, tags);
    }
    void finish(const Tags& tags) override {
        mFirst.finish(tags);
        mSecond.finish(tags);
    }

private:
    Listener& mFirst;
    Listener& mSecond;
};

void printStory(const std::vector<FrameStory::Happening>& story, const FlickerText& text, bool hasTimes) {
    for (const FrameStory::Happening& happening : story) {
        const std::string when = text.whenOf(happening.timeUs, happening.line);
        const double ms = static_cast<double>(happening.timeUs - story.front().timeUs) / 1e3;
        if (hasTimes) std::printf("%s %10.3f ms  ", when.c_str(), ms);
        if (!hasTimes) std::printf("%s ", padded(when, 14).c_str());
        const std::string thread = happening.thread == 0 ? "" : text.threadOf(happening.thread);
        const std::string pipe = happening.pipe == UNKNOWN ? "" : "pipe " + std::to_string(happening.pipe);
        std::printf("%s %s %s\n", padded(pipe, 8).c_str(), padded(thread, 26).c_str(), happening.text.c_str());
    }
}

void printReasons(const FlickerFinder& finder, const FlickerText& text, uint32_t frame) {
    for (const Flicker& flicker : finder.flickers()) {
        std::printf("\n%s %s\n", padded(text.whenOf(flicker.timeUs, flicker.line), 18).c_str(),
                    text.storyOf(flicker).c_str());
        std::printf("%s to change it: %s\n", padded("", 18).c_str(), text.adviceFor(flicker).c_str());
    }
    if (finder.flickers().empty() && finder.hasCauses()) {
        std::printf("\nevery read of frame %u got in time what its reader usually gets\n", frame);
    }
}

void printAsJson(const std::vector<FrameStory::Happening>& story, const FlickerFinder& finder, const FlickerText& text,
                 const Options& options) {
    nlohmann::json json = {{"camera", options.cam}, {"frame", options.frame}};
    json["story"] = nlohmann::json::array();
    json["flickers"] = nlohmann::json::array();
    for (const FrameStory::Happening& happening : story) {
        json["story"].push_back({{"when", text.whenOf(happening.timeUs, happening.line)},
                                 {"us", happening.timeUs - story.front().timeUs},
                                 {"line", happening.line},
                                 {"pipe", jsonOf(happening.pipe)},
                                 {"thread", text.threadOf(happening.thread)},
                                 {"text", happening.text}});
    }
    for (const Flicker& flicker : finder.flickers()) json["flickers"].push_back(jsonOf(flicker, text));
    printJson(stdout, json, 2);
}

int run(const Options& options) {
    FlickerFinder finder;
    finder.keepOnly(options.cam, options.frame);
    FrameStory story(options.cam, UNKNOWN, options.frame);
    Both both(finder, story);
    Interpreter interpreter(both);
    const Count count = readLog(options.log, interpreter);
    if (count.used == 0) return 1;
    const std::vector<FrameStory::Happening> happenings = story.happenings();
    if (happenings.empty()) {
        std::fprintf(stderr, "pslog: nothing about frame %u of camera %d\n", options.frame,
                     static_cast<int>(options.cam));
        return 1;
    }
    const FlickerText text(finder, interpreter);
    if (options.json) {
        printAsJson(happenings, finder, text, options);
        return resultOf(count);
    }
    std::printf("camera %d frame %u\n", static_cast<int>(options.cam), options.frame);
    printStory(happenings, text, interpreter.hasTimes());
    printReasons(finder, text, options.frame);
    if (!finder.hasCauses()) {
        std::fprintf(stderr, "pslog: most causes need a log of level 5, this one has %d: %s\n", count.level(),
                     MORE_LEVELS);
    }
    return resultOf(count);
}

}  // namespace

void addWhyCommand(Program& program) {
    const auto options = std::make_shared<Options>();
    Subcommand command = program.add("why",
                                     "show what happened to a frame in all pipes, and why its values were late "
                                     "or another frame's",
                                     [options] { return run(*options); });
    command.option("CAM", options->cam, "camera id").required();
    command.option("FRAME", options->frame, "frame id").required();
    command.flag("--json", options->json, "print JSON");
    addLogInput(command, options->log);
}

}  // namespace pslog
