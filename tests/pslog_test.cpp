// pslog, on logs that the store writes here, in every format that pslog reads, and on damaged ones.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <random>
#include <sstream>

#include "flicker_finder.h"
#include "flicker_text.h"
#include "tests/pslog_fixture.h"
#include "timeline.h"

TEST_F(PslogTest, CountsTheSameInEveryFormat) {
    runStory();
    for (const Format format : FORMATS) {
        const std::string text = summaryOf("noise\n" + log(format) + "I Other: 12, f: E\n\n");
        SCOPED_TRACE(text);
        EXPECT_TRUE(has(text, " of the store, 3 of others, 0 damaged\n"));
        EXPECT_EQ(has(text, "no thread ids"), format != Format::THREADTIME);
        // The 10 gets: frames 12, 11 and 20 had their own value (the get of 20 was woken). Frames 14, 19 and 21 (twice)
        // were answered 2, 7 and 1 frames back. Frame 0 answered for frames 0, 6 and 8.
        EXPECT_TRUE(has(text,
                        "  0    2     17 aeResult           4     15     10       3       4       3      1    7  "
                        "     3 "));
        EXPECT_TRUE(has(text, "      2      0      8\n")) << "two time-outs, eight erased values";
        EXPECT_TRUE(has(text,
                        "  0    2     18 <lut> & \"co\"       4     12      0       0       0       0      -    - "
                        "      0   -    -    -      0      0      5\n"));
        EXPECT_TRUE(has(text, "tag 17 aeResult: retain 6, needed 9: register with 9  (2 reads, 1 writes)\n"));
        EXPECT_TRUE(has(text, "      1  camera 0 pipe 2 tag 99 -: tag not registered\n"));
        EXPECT_TRUE(has(text, "      1  camera 0 pipe 14 tag 17 aeResult: pipe out of limit\n"));
        EXPECT_TRUE(has(text, "      1  camera 5 pipe - tag 17 aeResult: camera out of limit\n"));
    }
}

TEST_F(PslogTest, MakesTheNameColumnAsWideAsTheLongestName) {
    registerPsDynamicParam(AE + 2, 4, 0, "exposure caf\xC3\xA9 value", "int");
    set(1, 1, AE);
    set(1, 1, AE + 2);
    const std::string text = summaryOf(log(Format::HOST));
    SCOPED_TRACE(text);
    EXPECT_TRUE(has(text, "\n" + std::string(55, ' ') + "gets answered by    checkpoint   waits, ms\n"));
    EXPECT_TRUE(has(text, "\ncam pipe    tag name                bytes   sets   gets "));
    EXPECT_TRUE(has(text, "\n  0    2     17 aeResult                4      1      0 "));
    EXPECT_TRUE(has(text, "\n  0    2     19 exposure caf\xC3\xA9 value     4      1      0 "));
}

TEST_F(PslogTest, PrintsAQuestionMarkForWhatALogOfALowLevelCannotTell) {
    runStory();
    const struct {
        int level;
        const char* words;
    } cases[] = {
        {1, "camera 5 pipe - tag 17 -: camera out of limit\n"},
        {2, " ?       ?   ?    ?    ?      2      0      ?\n"},
        {3, " aeResult           4      ?      ?       ?       ?       ?      ?    ?       ?   ?    ?    ?      2 "},
        {4, "  0    2     17 aeResult           4      ?      ?       ?       ?       ?      ?    ?       3   "},
        {5, "  0    2     17 aeResult           4     15     10 "},
    };
    for (const auto& [level, words] : cases) {
        std::string text;
        for (const LogLine& line : mLines) {
            if (line.level <= level) text += written(line, Format::HOST, 0) + "\n";
        }
        const std::string summary = summaryOf(text);
        SCOPED_TRACE(summary);
        EXPECT_EQ(has(summary, "greatest level is " + std::to_string(level) + ": "), level < 5);
        EXPECT_EQ(has(summary, "PARAMSET_LOG=5"), level < 5);
        EXPECT_TRUE(has(summary, words));
        EXPECT_EQ(has(summary, "?"), level < 5);
        const auto json = nlohmann::json::parse(printed([&](std::FILE* out) {
            pslog::TagCounts counts;
            pslog::Interpreter interpreter(counts);
            const pslog::Count count = read(text, interpreter);
            pslog::printSummaryJson(out, counts, interpreter, count);
        }));
        EXPECT_EQ(json["log"]["level"], level);
        for (const auto& tag : json["tags"]) {
            EXPECT_EQ(tag["gets"].is_null(), level < 5);
            EXPECT_EQ(tag["waits"].is_null(), level < 4);
            EXPECT_EQ(tag["time_outs"].is_null(), level < 2);
        }
    }
}

TEST_F(PslogTest, NamesTheRetainNumberWithWhichTheReadSucceeds) {
    const auto erasedReads = [](uint32_t tag) {
        for (uint32_t frame = 1; frame <= 30; ++frame) set(frame, frame, tag);
        erasePs(kCam, kPipe, 30);
        return get(18, tag);
    };
    EXPECT_NE(erasedReads(AE), 18u);
    ASSERT_TRUE(has(summaryOf(log(Format::HOST)), "tag 17 aeResult: retain 6, needed 13: register with 13  (1 reads"));
    registerPsDynamicParamWithExtendingLife(AE + 100, 4, 0, "ae2", "int", 13);
    EXPECT_EQ(erasedReads(AE + 100), 18u) << "with the named retain number the values must not be erased";
}

TEST_F(PslogTest, TellsWhatHappenedToAFrameInTimeOrder) {
    runStory();
    std::string story = storyOf(20, Format::THREADTIME);
    const size_t asks = story.find("asks for tag 17 aeResult, and waits if needed");
    const size_t delivered = story.find("delivered tag 17 aeResult, a new checkpoint; wakes the waiting gets");
    const size_t got = story.find("got tag 17 aeResult, answered by the frame itself");
    EXPECT_TRUE(asks < delivered && delivered < got && got != std::string::npos) << story;
    EXPECT_TRUE(has(story, "answers the get of tag 17 aeResult for frame 21")) << story;
    EXPECT_TRUE(has(story, " thread " + std::to_string(getpid()))) << story;
    story = storyOf(21, Format::HOST);
    EXPECT_TRUE(has(story, " ms for tag 17 aeResult, and timed out\n")) << story;
    EXPECT_TRUE(has(story, "got tag 17 aeResult, answered by frame 20, 1 back")) << story;
    story = storyOf(8, Format::HOST);
    EXPECT_TRUE(has(story, "aeResult is erased by the erase of frame 14; frame 0 gets the value of frame 8")) << story;
    EXPECT_TRUE(has(story, "asked for tag 17 aeResult after its erasure up to frame 8: a retain number of 7")) << story;
    EXPECT_TRUE(has(storyOf(2, Format::HOST), "co\" is erased, to make room for the value of frame 9"));
    EXPECT_FALSE(has(storyOf(99, Format::HOST), "line"));
    EXPECT_EQ(storyOf(20, Format::STAMPED), storyOf(20, Format::TIME)) << "nanoseconds were read as another time";
}

TEST_F(PslogTest, AssignsLinesPrintedWithoutTheStoresMutexToTheirOwnCalls) {
    const std::string text = summaryOf(
        "V ParamSet: 1, getParamInternal: E cam 0 pipe 2 frame 9 tag 17 erasePoint:0\n"
        "V ParamSet: 2, _setParamSyn: camID: 0, pipe: 2, frameID: 10, tag: 17,\n"
        "D ParamSet: 3, operator(): cam 0 pipe 2 sof 3 tag 18, wait: 12.000000 ms.\n"
        "V ParamSet: 4, permiProc: cam 0 pipe 2 tag 17 destID 9 relatedID:4\n"
        "W ParamSet: 5, operator(): cam 0 pipe 2 sof 3 tag 18, wait timeout\n"
        "V ParamSet: 6, _getParam: success  camID: 0, pipe: 2, frameID: 9, tag: "
        "17,intrData:0x1,extrData:0x2,tagSize:4\n"
        "V ParamSet: 7, _getParamSyn: camID: 0, pipe: 2, frameID: 11, tag: 18,\n"
        "W ParamSet: 8, preproc: frameID 11 <= Erased 12, lut need life >= 8\n"
        "W ParamSet: 9, preproc: frameID 11 <= Erased 13, ae need life >= 9\n"
        "V ParamSet: 9, _setParamSyn: success camID: 0, pipe: 2, frameID: 11, tag: 17,intrData:0x1,extrData:0x2,"
        "tagSize:4\n"
        "W ParamSet: 9, getParamInternal: frameID 1 <= Erased 2, other need life >= 8\n"
        "V ParamSet: 10, _getMetadata: E cam[0].paramFrame[21], erase point:0\n"
        "V ParamSet: 11, findRelated: desID 21, relateID[21]\n"
        "D ParamSet: 12, operator(): cam 0 pipe 2 sof 21 tag 16, wait: 12.000000 ms.\n"
        "V ParamSet: 11, findRelated: desID 21, relateID[20]\n");
    SCOPED_TRACE(text);
    EXPECT_TRUE(has(text, "   17 -                  -      1      1       0       1       0      5    5"));
    EXPECT_TRUE(has(text, "    1  12   12   12      1      0"));
    EXPECT_TRUE(has(text, " (metadata)         -      0      1       1       0       0"));
    EXPECT_TRUE(has(text, "lut: retain -, needed 8: register with 8  (1 reads, 0 writes)"));
    EXPECT_TRUE(has(text, "ae: (0 reads, 1 writes)"));
    EXPECT_TRUE(has(text, "needed 8: register with 8  (0 reads, 0 writes, 1 of which the log does not say which)"));
}

TEST_F(PslogTest, TellsErasedMetadataFromMetadataWhoseFrameIsGone) {
    uint32_t value = 0;
    for (uint32_t frame = 1; frame <= 20; ++frame) {
        camera_metadata* const metadata = host::makeMetadata(&frame, sizeof frame);
        zarn::ParamSet::setMetadata(kCam, frame, metadata);
        free_camera_metadata(metadata);
        setPsParam(kCam, 0, frame, LUT, &value);  // a queue of 7: trimming removes the frame with its value
    }
    EXPECT_EQ(zarn::ParamSet::getMetadata(kCam, 9), nullptr);
    EXPECT_NE(zarn::ParamSet::getMetadata(kCam, 18), nullptr);
    erasePs(kCam, 0, 24);
    EXPECT_EQ(zarn::ParamSet::getMetadata(kCam, 17), nullptr);

    pslog::FlickerFinder finder(10);
    pslog::Interpreter interpreter(finder);
    read(log(Format::THREADTIME), interpreter);
    const pslog::FlickerText text(finder, interpreter);
    const std::vector<pslog::Flicker> flickers = finder.flickers();
    ASSERT_EQ(flickers.size(), 2u);
    const bool isInOrder = flickers[0].frame == 9;
    const pslog::Flicker &gone = flickers[isInOrder ? 0 : 1], &erased = flickers[isInOrder ? 1 : 0];
    EXPECT_EQ(gone.root().cause, pslog::Cause::FRAME_GONE);
    EXPECT_EQ(text.storyOf(gone),
              "metadata of frame 0 used for 9: metadata of 9 was gone: its frame was removed with its last value");
    EXPECT_TRUE(has(text.adviceFor(gone), "a tag of pipe 0 a greater retain number"));
    EXPECT_EQ(erased.root().cause, pslog::Cause::ERASED);
    EXPECT_TRUE(has(text.storyOf(erased), "metadata of 17 was erased before it was read")) << text.storyOf(erased);
    EXPECT_EQ(text.adviceFor(erased), "read metadata sooner, or erase later");
}

TEST_F(PslogTest, CountsUnusableLinesAndContinues) {
    runStory();
    const std::string whole = log(Format::THREADTIME);
    std::mt19937 random(4711);
    const auto below = [&random](size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random); };
    for (int round = 0; round < 60; ++round) {
        std::string damaged = whole;
        for (int i = 0; i < 40; ++i) damaged[below(damaged.size())] = static_cast<char>(below(256));
        for (int i = 0; i < 10; ++i) damaged.erase(below(damaged.size() - 200), below(200));
        for (int i = 0; i < 10; ++i) damaged.insert(below(damaged.size()), whole, below(whole.size()), below(300));
        pslog::Timeline timeline({});
        pslog::Interpreter interpreter(timeline);
        const pslog::Count count = read(damaged, interpreter);
        const auto lines =
            static_cast<uint64_t>(std::count(damaged.begin(), damaged.end(), '\n')) + (damaged.back() != '\n');
        ASSERT_EQ(count.lines, lines);
        ASSERT_EQ(count.used + count.others + count.damaged, lines);
        ASSERT_GT(count.damaged, 0u);
        std::ostringstream svg, trace;
        pslog::writeSvg(svg, timeline, interpreter);
        pslog::writeTrace(trace, timeline, interpreter);
        ASSERT_TRUE(nlohmann::json::accept(trace.str()));
    }
    // A cut line is not taken for another message, and a line that is longer than memory is skipped.
    const std::string line = "V ParamSet: 4, permiProc: cam 0 pipe 2 tag 17 destID 9 relatedID:4";
    for (size_t size = 13; size + 1 < line.size(); ++size) {
        ASSERT_TRUE(has(summaryOf(line.substr(0, size) + "\n"), "0 of the store, 0 of others, 1 damaged")) << size;
    }
    EXPECT_TRUE(has(summaryOf(line + "294967296"), "1 damaged")) << "a number that the store cannot have";
    EXPECT_TRUE(has(summaryOf("V ParamSet: 1, permiProc: add checkPoint[7] size:-3,permiProc:ae\n"
                              "V ParamSet: 1, _setParam: success camID: 0, pipe: 2, frameID: 7, tag: 17,intrData:0x1,"
                              "extrData:0x2,tagSize:4\n"),
                    "2 of the store, 0 of others"));
    EXPECT_TRUE(has(summaryOf(std::string(3 << 20, 'x') + "\r\n" + line + "\r\n" + line),
                    "3 lines: 2 of the store, 1 of others, 0 damaged\n"));
    pslog::TagCounts counts;
    pslog::Interpreter interpreter(counts);
    EXPECT_THROW(pslog::readLog("/nowhere/to/be/found", interpreter), std::system_error);
}

// The counts of single lines do not depend on other lines: each line is counted, wherever it is and whatever is missing
// around it.
TEST_F(PslogTest, CountsEveryWholeLineOfALargeLogOutOfOrderAndCut) {
    runStory();
    std::vector<std::string> lines;
    for (int i = 0; i < 200; ++i) {
        for (const LogLine& line : mLines) lines.push_back(written(line, Format::HOST, 0));
    }
    const auto textOf = [&lines] {
        std::string text;
        for (const std::string& line : lines) text += line + "\n";
        return text;
    };
    const auto tableOf = [](const std::string& summary) { return summary.substr(summary.find('\n')); };
    const std::string table = tableOf(summaryOf(textOf()));

    std::mt19937 random(4711);
    const size_t whole = lines.size();
    const size_t cut = whole / 5;
    for (size_t i = 0; i < cut; ++i) {  // inserts a cut copy of a line somewhere
        std::string& at = lines[random() % lines.size()];
        at.insert(0, at.substr(0, 16) + "\n");
    }
    std::string summary = summaryOf(textOf());
    EXPECT_EQ(tableOf(summary), table);
    EXPECT_TRUE(has(summary, std::to_string(whole) + " of the store, 0 of others, " + std::to_string(cut) + " damaged"))
        << summary;

    std::shuffle(lines.begin(), lines.end(), random);
    for (size_t i = 0; i < lines.size(); i += 7) lines[i].resize(16);
    summary = summaryOf(textOf());
    const auto count = [&lines](const char* start, const char* end) {
        return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
            const size_t at = line.find(start);
            return at != std::string::npos && line.find(end, at) != std::string::npos;
        });
    };
    const struct {
        const char* name;
        int column;  // after the name
        std::ptrdiff_t expected;
    } columns[] = {
        {" \"co\" ", 1, count("_setParam: success camID: 0, pipe: 2", "tag: 18,")},
        {" aeResult ", 2, count("_getParam: success  ", "tag: 17,") + count("_getParamSyn: success  ", "tag: 17,")},
        {" aeResult ", 8, count("tag 17, wait:", "ms.")},
        {" aeResult ", 12, count("tag 17, wait timeout", "")},
    };
    for (const auto& [name, column, expected] : columns) {
        std::istringstream words(summary.substr(std::min(summary.find(name), summary.size())));
        std::string word;
        for (int i = -1; i <= column; ++i) words >> word;
        EXPECT_GT(expected, 0);
        EXPECT_EQ(word, std::to_string(expected)) << name << column << "\n" << summary;
    }
}
