// The library as it is built for a device, with a log library that this program defines. It counts how often the store
// asks for the log level. A variable here stands for the device's setting of that level.

#include <android/log.h>
#include <android/set_abort_message.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "paramset.h"
#include "platform/host/host_platform.h"
#include "tests/out_of_memory.h"

namespace {

int gPriority = ANDROID_LOG_DEFAULT;  // the lowest priority that the device prints; the default: nothing is set
int gQuestions = 0;
std::function<void()> gAtQuestion;
std::string gLetters;  // the priority of each line

constexpr uint32_t kTag = 7;

// Makes one of each call except the erase.
void callEverything() {
    uint32_t value = 1;
    setPsParam(0, 0, 10, kTag, &value);
    setPsParam(0, 0, 10, kTag, &value);
    getPsParam(0, 0, 10, kTag, &value);
    getPsParam(0, 0, 15, kTag, &value);
    setPsParamSyn(0, 0, 11, kTag, &value);
    getPsParamSyn(0, 0, 11, kTag, &value);
    getPsParamSynTimeout(0, 0, 12, kTag, &value, 1);
    camera_metadata* metadata = host::makeMetadata("", 0);
    zarn::ParamSet::setMetadata(0, 10, metadata);
    zarn::ParamSet::getMetadata(0, 10);
    free_camera_metadata(metadata);
    ioctrlOutsidePsParam(0, 0x8000, 0, nullptr, nullptr);
}

class Device : public ::testing::Test {
protected:
    Device() {
        zarn::gTagInfo.clear();
        registerPsDynamicParam(kTag, 4, 0, "tag", "uint32_t");
    }
    ~Device() override {
        zarn::ParamSet::destroyInstance();
        gPriority = ANDROID_LOG_DEFAULT;
        gAtQuestion = nullptr;
    }
};

}  // namespace

int __android_log_is_loggable(int priority, const char* tag, int otherwise) {
    EXPECT_STREQ(tag, "ParamSet");
    ++gQuestions;
    if (gAtQuestion) gAtQuestion();
    return priority >= (gPriority != ANDROID_LOG_DEFAULT ? gPriority : otherwise);
}

int __android_log_write(int priority, const char*, const char* message) {
    gLetters += "??VDIWEF"[priority];
    if (priority == ANDROID_LOG_FATAL) fprintf(stderr, "log: %s\n", message);
    return 1;
}

void android_set_abort_message(const char* message) {
    fprintf(stderr, "abort message: %s\n", message);
}

TEST_F(Device, LogLevelIsAskedForWhenTheStoreIsBuiltAndByErasesOnly) {
    struct Case {
        int priority;
        std::string printed;
        std::string notPrinted;
    };
    const Case cases[] = {{ANDROID_LOG_DEFAULT, "W", "DV"}, {ANDROID_LOG_VERBOSE, "WDV", ""},
                          {ANDROID_LOG_DEBUG, "WD", "V"},   {ANDROID_LOG_INFO, "W", "DV"},
                          {ANDROID_LOG_ERROR, "", "WDV"},   {ANDROID_LOG_SILENT, "", "EWDV"}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.priority);
        gPriority = each.priority;
        zarn::ParamSet::createInstance();
        EXPECT_GT(gQuestions, 0);
        gQuestions = 0;
        gLetters.clear();
        callEverything();
        EXPECT_EQ(gQuestions, 0);
        for (char letter : each.printed) EXPECT_NE(gLetters.find(letter), std::string::npos) << letter;
        for (char letter : each.notPrinted) EXPECT_EQ(gLetters.find(letter), std::string::npos) << letter;
        erasePs(0, 0, 30);
        EXPECT_GT(gQuestions, 0);
        EXPECT_LE(gQuestions, 5);
        zarn::ParamSet::destroyInstance();
    }
}

TEST_F(Device, EraseAsksForTheLogLevelBeforeItTakesTheMutex) {
    zarn::ParamSet::createInstance();
    gPriority = ANDROID_LOG_VERBOSE;
    gLetters.clear();
    callEverything();
    EXPECT_EQ(gLetters.find('V'), std::string::npos);

    std::thread other;
    std::promise<void> done;
    gAtQuestion = [&] {
        if (other.joinable()) return;
        other = std::thread([&] {
            uint32_t value = 0;
            getPsParam(0, 0, 10, kTag, &value);
            done.set_value();
        });
        EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
    };
    erasePs(0, 0, 30);
    other.join();
    gAtQuestion = nullptr;
    gLetters.clear();
    callEverything();
    EXPECT_NE(gLetters.find('V'), std::string::npos);
}

TEST_F(Device, AbortMessageAndLogSayThatMemoryRanOut) {
    zarn::ParamSet::createInstance();
    EXPECT_EXIT(
        {
            std::signal(SIGABRT, [](int) { std::_Exit(7); });
            gIsOutOfMemory = true;
            uint32_t value = 1;
            setPsParam(0, 2, 10, kTag, &value);
        },
        testing::ExitedWithCode(7),
        "^paramset: out of memory\nabort message: paramset: out of memory\nlog: paramset: out of memory\n");
}
