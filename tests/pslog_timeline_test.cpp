// The picture and the trace of pslog, on logs that are made here line by line: what a reader sees.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <random>
#include <sstream>

#include "svg_cell.h"
#include "tests/pslog_fixture.h"
#include "timeline.h"

namespace {

constexpr const char* MINUS = "\u2212";

// Lines in the format `threadtime`, to the microsecond.
class LogMaker {
public:
    void at(int64_t us) { mUs = us; }
    void name(uint32_t tag, const std::string& name) {
        line(1, "1, register_tag: ParamSet tag:" + std::to_string(tag) + ", name:" + name +
                    ", dataType:int, size:4, tagType:0, retainNum:30");
    }
    void deliver(uint32_t frame, uint32_t tag, uint32_t thread) { line(thread, copied("_setParamSyn: ", frame, tag)); }
    // A wait that ends at the current time. @param by  the frame that answers
    void wait(uint32_t frame, uint32_t tag, uint32_t thread, int ms, bool timedOut, uint32_t by) {
        const std::string of = "cam 0 pipe 2 sof " + std::to_string(frame) + " tag " + std::to_string(tag);
        const int64_t end = mUs;
        mUs -= ms * 1000;
        line(thread, "1, _getParamSyn: camID: 0, pipe: 2, frameID: " + std::to_string(frame) +
                         ", tag: " + std::to_string(tag) + ",");
        mUs = end;
        if (timedOut) line(thread, "1, operator(): " + of + ", wait timeout");
        line(thread, "1, operator(): " + of + ", wait: " + std::to_string(ms) + ".000000 ms.");
        if (by != frame) {
            line(thread, "1, permiProc: cam 0 pipe 2 tag " + std::to_string(tag) + " destID " + std::to_string(frame) +
                             " relatedID:" + std::to_string(by));
        }
        line(thread, copied("_getParamSyn: ", frame, tag));
    }
    const std::string& text() const { return mText; }

private:
    static std::string copied(const char* function, uint32_t frame, uint32_t tag) {
        return std::string("1, ") + function + "success " + (function[1] == 'g' ? " " : "") +
               "camID: 0, pipe: 2, frameID: " + std::to_string(frame) + ", tag: " + std::to_string(tag) +
               ",intrData:0x1,extrData:0x2,tagSize:4";
    }
    void line(uint32_t thread, const std::string& message) {
        char start[80];
        std::snprintf(start, sizeof start,
                      "11-21 10:%02d:%02d.%06d   812 %5u V ParamSet: ", static_cast<int>(mUs / 60000000 % 60),
                      static_cast<int>(mUs / 1000000 % 60), static_cast<int>(mUs % 1000000), thread);
        mText += start + message + "\n";
    }

    std::string mText;
    int64_t mUs = 0;
};

struct Box {
    double left, top, right, bottom;
    bool meets(const Box& o) const { return left < o.right && o.left < right && top < o.bottom && o.top < bottom; }
};

Box boxOf(const pugi::xml_node& shape) {
    if (std::string(shape.name()) == "text") {
        const double x = shape.attribute("x").as_double(), y = shape.attribute("y").as_double();
        return {x, y - 7, x + 6 * static_cast<double>(std::string(shape.child_value()).size() - 2), y};
    }
    std::string way = shape.attribute("d").value();
    for (char& c : way) c = c == 'M' || c == 'L' || c == 'z' ? ' ' : c;
    std::istringstream numbers(way);
    Box box{1e9, 1e9, -1e9, -1e9};
    for (double x, y; numbers >> x >> y;) {
        box = {std::min(box.left, x), std::min(box.top, y), std::max(box.right, x), std::max(box.bottom, y)};
    }
    return box;
}

class PslogTimelineTest : public PslogTest {
protected:
    // Draws the picture of a log.
    void draw(const std::string& log, const pslog::Choice& choice = {}) {
        pslog::Timeline timeline(choice);
        pslog::Interpreter interpreter(timeline);
        read(log, interpreter);
        std::ostringstream svg, trace;
        pslog::writeSvg(svg, timeline, interpreter);
        pslog::writeTrace(trace, timeline, interpreter);
        ASSERT_TRUE(mPicture.load_string(svg.str().c_str())) << "not well-formed";
        mEvents = nlohmann::json::parse(trace.str())["traceEvents"];
        EXPECT_LE(mPicture.child("svg").attribute("width").as_int(), 4000);
    }
    std::vector<pugi::xml_node> loud(const char* path) const {
        std::vector<pugi::xml_node> nodes;
        for (const auto& found : mPicture.select_nodes((std::string("//g[@class='loud']/") + path).c_str()))
            nodes.push_back(found.node());
        return nodes;
    }
    // The texts of the picture in order of their place, up to a given x.
    std::vector<std::string> texts(double left, double right) const {
        std::vector<std::string> result;
        for (const auto& found : mPicture.select_nodes("//text")) {
            const double x = found.node().attribute("x").as_double();
            if (x >= left && x < right) result.emplace_back(found.node().child_value());
        }
        return result;
    }
    size_t count(const std::vector<std::string>& words, const std::string& word) const {
        return static_cast<size_t>(std::count(words.begin(), words.end(), word));
    }
    std::vector<nlohmann::json> events(const char* key, const char* value) const {
        std::vector<nlohmann::json> result;
        std::copy_if(mEvents.begin(), mEvents.end(), std::back_inserter(result),
                     [&](const auto& e) { return e.value(key, "") == value; });
        return result;
    }
    std::map<int, std::string> threadNames() const {
        std::map<int, std::string> names;
        for (const auto& event : events("name", "thread_name")) names[event["tid"]] = event["args"]["name"];
        return names;
    }

    pugi::xml_document mPicture;
    nlohmann::json mEvents;
};

// A stream of 10 frames a second. In each frame AE is delivered 5 ms after LUT. Only in frame `late` AE is delivered
// after 60 ms, and its reader gets the value of the frame before. The last delivery of LUT announces the end of the
// stream: it has no AE.
std::string streamOf(uint32_t frames, uint32_t late) {
    LogMaker log;
    log.name(AE, "gain");
    log.name(LUT, "ready");
    for (uint32_t frame = 1; frame <= frames; ++frame) {
        const int64_t startUs = frame * 100000;
        log.at(startUs);
        log.deliver(frame, LUT, 41);
        log.at(startUs + 200);
        log.wait(frame, LUT, 42, 20, false, frame);
        const bool isLate = frame == late;
        log.at(startUs + (isLate ? 55000 : 5000));
        if (!isLate) log.deliver(frame, AE, 42);
        log.at(startUs + (isLate ? 50000 : 5100));
        log.wait(frame, AE, 43, isLate ? 50 : 5, isLate, isLate ? frame - 1 : frame);
        log.at(startUs + 60000);
        if (isLate) log.deliver(frame, AE, 42);
    }
    log.at((frames + 1) * 100000);
    log.deliver(frames + 1, LUT, 41);
    return log.text();
}

}  // namespace

TEST_F(PslogTimelineTest, LeadsToTheFrameThatFlickers) {
    draw(streamOf(3000, 1777));
    const std::vector<std::string> frames = texts(0, 70);
    EXPECT_EQ(count(frames, "camera 0: 3000 frames, 1 time-out, 1 fall-back"), 1u)
        << "the end of the stream is no frame";
    for (const char* frame : {"1773", "1777", "1781"}) EXPECT_EQ(count(frames, frame), 1u) << frame;
    for (const char* frame : {"1772", "1782", "3001"}) EXPECT_EQ(count(frames, frame), 0u) << frame;
    // The strip's first and last label, one between them, and the notes about the frames that are left out.
    const std::vector<std::string> all = texts(0, 4000);
    for (const char* words : {"1", "500", "3000", "1772 frames not shown", "1219 frames not shown"}) {
        EXPECT_EQ(count(all, words), 1u) << words;
    }
    // The flicker has loud marks in the strip of all frames and in its row. Nothing else is loud.
    size_t ticks = 0, bars = 0, labels = 0;
    for (const pugi::xml_node& shape : loud("*")) {
        const std::string title = shape.child_value("title");
        ticks += has(title, "frames 1776 to 1779: 1 time-out, 1 fall-back");
        bars += has(title, "frame 1777, gain: waited 50 ms, timed out, answered by frame 1776, 1 back; until 50 ms");
        labels += shape.child_value() == std::string(MINUS) + "1";
    }
    EXPECT_EQ(ticks, 2u);
    EXPECT_EQ(bars, 2u) << "the bar and its diamond";
    EXPECT_EQ(labels, 2u) << "the legend and the row";
    EXPECT_EQ(mPicture.select_nodes("//g[@class='quiet']/following-sibling::g[@class='loud']").size(), 1u) << "on top";

    draw(streamOf(100, 50));  // so few frames that each has a bin of its own in the strip
    EXPECT_EQ(count(texts(0, 4000), "100"), 1u);
    EXPECT_EQ(count(texts(0, 4000), "101"), 0u);
    EXPECT_EQ(count(texts(0, 4000), "46 frames not shown"), 1u);

    draw(streamOf(30, 0));
    EXPECT_EQ(count(texts(0, 70), "camera 0: 30 frames, no flicker"), 1u);
    EXPECT_EQ(count(texts(0, 130), "the stream ends here"), 1u);
}

TEST_F(PslogTimelineTest, ShowsTheFirstEpisodeAndTheHeightOfTheWorst) {
    LogMaker log;
    for (uint32_t frame = 1; frame <= 600; ++frame) {
        log.at(frame * 100000);
        log.deliver(frame, LUT, 41);
        log.deliver(frame, AE, 42);
        const uint32_t back = frame == 421 ? 3 : frame % 40 == 0 || frame == 413 ? 1 : 0;
        log.wait(frame, AE, 43, 20, back > 0, frame - back);
    }
    pslog::Choice choice;
    choice.frames = 20;
    draw(log.text(), choice);
    for (const char* frame : {"36", "40", "417", "421", "425"}) EXPECT_EQ(count(texts(0, 70), frame), 1u) << frame;
    for (const char* frame : {"80", "413", "440"}) EXPECT_EQ(count(texts(0, 70), frame), 0u) << frame;
}

TEST_F(PslogTimelineTest, ShowsTheRequestedFramesAndTags) {
    const std::string log = streamOf(300, 177);
    pslog::Choice around;
    around.around = 250;
    around.frames = 10;
    draw(log, around);
    for (const char* frame : {"245", "250", "255"}) EXPECT_EQ(count(texts(0, 70), frame), 1u) << frame;
    for (const char* frame : {"244", "177", "256"}) EXPECT_EQ(count(texts(0, 70), frame), 0u) << frame;
    const struct {
        std::vector<std::string> tags;
        std::optional<int64_t> cam, pipe;
        size_t gain, ready;
    } cases[] = {{{}, {}, {}, 1, 1},     {{"gain"}, {}, {}, 1, 0}, {{"0x11", "18"}, {}, {}, 1, 1},
                 {{"18"}, {}, {}, 0, 1}, {{"gai"}, {}, {}, 0, 0},  {{}, 0, 2, 1, 1},
                 {{}, 1, {}, 0, 0},      {{}, {}, 3, 0, 0}};
    for (const auto& [tags, cam, pipe, gain, ready] : cases) {
        pslog::Choice choice;
        choice.tags = tags;
        choice.cam = cam;
        choice.pipe = pipe;
        draw(log, choice);
        EXPECT_EQ(count(texts(0, 4000), "gain"), gain);
        EXPECT_EQ(count(texts(0, 4000), "ready"), ready);
    }
}

// Many concurrent waits with random ends, some far beyond the scale.
TEST_F(PslogTimelineTest, DrawsNothingOverNumbersAndDiamonds) {
    std::mt19937 random(4711);
    LogMaker log;
    size_t fallBacks = 0;
    for (uint32_t frame = 10; frame < 40; ++frame) {
        log.at(frame * 100000 + 100000000);
        log.deliver(frame, AE, 42);
        for (uint32_t thread = 50; thread < 50 + frame % 5; ++thread) {
            const int ms = static_cast<int>(random() % (thread == 53 ? 3000 : 60));
            log.at(frame * 100000 + 100000000 + static_cast<int64_t>(random() % 40000) + (thread == 53 ? ms * 500 : 0));
            const bool isFallBack = random() % 3 != 0;
            fallBacks += isFallBack;
            log.wait(frame, AE, thread, ms, true, isFallBack ? frame - 1 - static_cast<uint32_t>(random() % 9) : frame);
        }
    }
    draw(log.text());
    size_t labels = 0, numbers = 0;
    const std::vector<pugi::xml_node> paths = loud("path[@fill!='none']");
    for (const pugi::xml_node& text : loud("text")) {
        const std::string words = text.child_value();
        numbers += has(words, " ms");
        if (words.rfind(MINUS, 0) != 0) continue;
        ++labels;
        const Box label = boxOf(text);
        size_t own = 0;
        for (const pugi::xml_node& path : paths) {
            const Box box = boxOf(path);
            EXPECT_FALSE(label.meets(box)) << words << " at " << label.left << " " << label.top;
            own += box.right <= label.left && label.left - box.right < 3 && box.top < label.bottom &&
                   label.top < box.bottom;
        }
        EXPECT_EQ(own, 1u) << words << ": no diamond before it";
    }
    EXPECT_EQ(labels, fallBacks + 1) << "one is the legend's";
    EXPECT_GT(numbers, 3u);
    for (const pugi::xml_node& path : paths) {
        const Box box = boxOf(path);
        EXPECT_GE(box.right - box.left, 10);
        for (const pugi::xml_node& other : paths) EXPECT_TRUE(path == other || !box.meets(boxOf(other)));
    }
}

TEST_F(PslogTimelineTest, IsNeverTooWideAndFoldsTagsThatDoNotFit) {
    for (const uint32_t tags : {1u, 5u, 24u, 200u}) {
        LogMaker log;
        for (uint32_t frame = 1; frame <= 20; ++frame) {
            for (uint32_t tag = 100; tag < 100 + tags; ++tag) {
                log.at(frame * 100000);
                log.deliver(frame, tag, 42);
                if (frame == 7) log.wait(frame, tag, 43, 50, true, frame - 1);
            }
        }
        draw(log.text());
        EXPECT_EQ(count(texts(0, 4000), "tag 123"), 0u);
        EXPECT_EQ(count(texts(0, 4000), "176 more tags"), tags == 200 ? 1u : 0u);
        EXPECT_EQ(count(texts(0, 4000), "176 time-outs, 176 fall-backs"), tags == 200 ? 1u : 0u);
        if (tags == 5) {
            EXPECT_EQ(threadNames().at(42), "42 gives tag 100, tag 101, tag 102 and 2 more");
        }
    }
}

TEST_F(PslogTimelineTest, ShortensNamesSoThatTheyStayDifferent) {
    LogMaker log;
    for (uint32_t tag = 100; tag < 120; ++tag) {
        log.name(tag, "vendor.isp.block" + std::to_string(tag) + ".caf\u00e9");
        for (uint32_t frame = 1; frame <= 9; ++frame) {
            log.at(frame * 100000);
            log.deliver(frame, tag, tag);
            if (frame == 7) log.wait(frame, tag, 42, 50, true, frame - 1);
        }
    }
    draw(log.text());
    for (uint32_t tag = 100; tag < 120; ++tag) {
        const std::string name = "vendor.isp.block" + std::to_string(tag) + ".caf\u00e9";
        const std::string path = "//text[title='" + name + "']";
        const std::string shown = mPicture.select_node(path.c_str()).node().child_value();
        EXPECT_TRUE(has(shown, "vend")) << shown;
        EXPECT_TRUE(has(shown, "~")) << shown;
        EXPECT_TRUE(has(shown, std::to_string(tag) + ".caf\u00e9")) << shown;
    }
}

TEST_F(PslogTimelineTest, TraceLeadsFromDeliveriesToTheWaitsThatTheyEnd) {
    draw(streamOf(40, 17));
    const auto waits = events("cat", "wait"), starts = events("ph", "s"), ends = events("ph", "f");
    EXPECT_EQ(waits.size(), 79u);
    EXPECT_EQ(events("cat", "time-out").size(), 1u);
    ASSERT_EQ(ends.size(), waits.size());
    for (size_t i = 0; i < ends.size(); ++i) {
        EXPECT_EQ(starts[i]["id"], ends[i]["id"]);
        EXPECT_LE(starts[i]["ts"], ends[i]["ts"]);
        const auto isIn = [&ends, i](const nlohmann::json& wait) {
            const int64_t from = wait["ts"], dur = wait["dur"], at = ends[i]["ts"];
            return wait["tid"] == ends[i]["tid"] && from <= at && at < from + dur;
        };
        EXPECT_TRUE(std::any_of(waits.begin(), waits.end(), isIn)) << ends[i];
    }
    const auto flickers = events("cat", "flicker");
    ASSERT_EQ(flickers.size(), 1u);
    EXPECT_EQ(flickers[0]["name"], "flicker: gain of 17 was that of 16");
    EXPECT_EQ(threadNames(), (std::map<int, std::string>{{41, "41 gives ready"}, {42, "42 gives gain"}, {43, "43"}}));
    const auto counters = events("name", "pipe 2 gain");
    ASSERT_EQ(counters.size(), 80u);
    EXPECT_EQ(counters.back()["args"]["waits"], 0);
    EXPECT_EQ(counters.back()["args"]["fall-backs"], 1);
}

TEST_F(PslogTimelineTest, KeepsAFewFramesOfALongLog) {
    pslog::Timeline timeline({});
    pslog::Interpreter interpreter(timeline);
    pslog::Event event{};
    event.type = pslog::EventType::SET;
    event.key = {0, 2, AE};
    size_t most = 0;
    for (uint32_t frame = 1; frame <= 400000; ++frame) {
        event.frame = frame;
        timeline.take(event, interpreter.tags());
        if (frame % 1000 == 0) most = std::max(most, timeline.cameras().at(0).rows.size());
    }
    EXPECT_LT(most, 80000u);
    timeline.finish(interpreter.tags());
    EXPECT_EQ(timeline.cameras().at(0).rows.size(), 20u);
    EXPECT_EQ(timeline.cameras().at(0).frames, 400000u);
}
