// What the tests of pslog share: a log that the store writes here, in every format of the host's logger and in some of
// the platform's, and the output of pslog's parts for it.

#ifndef PARAMSET_TESTS_PSLOG_FIXTURE_H
#define PARAMSET_TESTS_PSLOG_FIXTURE_H

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "frame_story.h"
#include "summary.h"
#include "tests/store_fixture.h"

inline constexpr uint32_t AE = 17;
inline constexpr uint32_t LUT = 18;

enum class Format { HOST, STAMPED, BRIEF, TIME, THREADTIME };
inline const Format FORMATS[] = {Format::HOST, Format::STAMPED, Format::BRIEF, Format::TIME, Format::THREADTIME};

struct LogLine {
    int level;
    unsigned thread;
    std::string message;
};

inline std::string written(const LogLine& line, Format format, size_t index) {
    const char letter = "EWIDV"[line.level - 1];
    char start[80];
    const auto second = static_cast<unsigned>(index / 1000), ms = static_cast<unsigned>(index % 1000);
    switch (format) {
        case Format::HOST: std::snprintf(start, sizeof start, "%c ParamSet: ", letter); break;
        case Format::STAMPED:
            std::snprintf(start, sizeof start, "2025-11-21 10:00:%02u.%03u000000 %c ParamSet: ", second, ms, letter);
            break;
        case Format::BRIEF: std::snprintf(start, sizeof start, "%c/ParamSet(  812): ", letter); break;
        case Format::TIME:
            std::snprintf(start, sizeof start, "11-21 10:00:%02u.%03u %c/ParamSet(  812): ", second, ms, letter);
            break;
        case Format::THREADTIME:
            std::snprintf(start, sizeof start, "11-21 10:00:%02u.%03u   812 %5u %c ParamSet: ", second, ms, line.thread,
                          letter);
    }
    return start + line.message;
}

inline std::string printed(const std::function<void(std::FILE*)>& print) {
    char* text = nullptr;
    size_t size = 0;
    std::FILE* out = open_memstream(&text, &size);
    print(out);
    std::fclose(out);
    const std::string result(text, size);
    free(text);
    return result;
}

class PslogTest : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        host::setLogSink(
            [](void* self, pipeline_loglevel level, const char*, const char* message) {
                auto* test = static_cast<PslogTest*>(self);
                test->mLines.push_back({level, static_cast<unsigned>(syscall(SYS_gettid)), message});
            },
            this);
        registerPsDynamicParam(AE, 4, 0, "aeResult", "int");
        registerPsQueueParam(LUT, 4, 2, "<lut> & \"co\"", "int", 7);
    }

    std::string log(Format format) const {
        std::string text;
        for (size_t i = 0; i < mLines.size(); ++i) text += written(mLines[i], format, i) + "\n";
        return text;
    }

    pslog::Count read(const std::string& text, pslog::Interpreter& interpreter) const {
        const std::string name = ::testing::TempDir() + "pslog_test." + std::to_string(getpid());
        std::ofstream(name) << text;
        const pslog::Count count = pslog::readLog(name, interpreter);
        unlink(name.c_str());
        return count;
    }

    std::string summaryOf(const std::string& text) const {
        pslog::TagCounts counts;
        pslog::Interpreter interpreter(counts);
        const pslog::Count count = read(text, interpreter);
        return printed([&](std::FILE* out) { pslog::printSummary(out, counts, interpreter, count); });
    }

    std::string storyOf(uint32_t frame, Format format) const {
        pslog::FrameStory story(kCam, kPipe, frame);
        pslog::Interpreter interpreter(story);
        read(log(format), interpreter);
        return printed([&](std::FILE* out) { story.print(out, interpreter); });
    }

    // Everything that the summary counts, a known number of times.
    void runStory() {
        for (uint32_t frame = 1; frame <= 12; ++frame) {
            set(frame, frame, AE);
            set(frame, frame, LUT);
        }
        for (const uint32_t frame : {12u, 11u, 14u, 19u, 0u}) get(frame, AE);
        erasePs(kCam, kPipe, 14);
        get(6, AE);
        get(8, AE);
        set(7, 1, AE);
        WaitingGet waiting(20, AE, 60000);
        deliver(20, 5, AE);
        waiting.finish();
        for (const uint32_t timeout : {3u, 5u}) getSyn(21, AE, timeout);
        uint32_t value = 0;
        getPsParam(kCam, kPipe, 12, 99, &value);
        getPsParam(kCam, 14, 12, AE, &value);
        setPsParam(5, kPipe, 12, AE, &value);
        setPsParam(kCam, kPipe, THE_LAST, AE, &value);
    }

    std::vector<LogLine> mLines;
};

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

#endif  // PARAMSET_TESTS_PSLOG_FIXTURE_H
