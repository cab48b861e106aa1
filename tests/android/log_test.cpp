// The log of a device: the library as it is built for a device (except its properties and metadata), with the
// platform's own log library. A function of this program replaces the device's log.

#include "platform/log.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "paramset.h"

namespace {

std::vector<std::string> gLines;

// "<priority letter> <tag>: <message>", without the source line.
void keep(int priority, const std::string& tag, const std::string& message) {
    gLines.push_back(std::string(1, "??VDIWEF"[priority]) + " " + tag + ": " + message.substr(message.find(", ") + 2));
}

// The log library passes a line in one argument; before Android 11, in two.
template <typename Line>
void keepLine(const Line* line) {
    keep(line->priority, line->tag, line->message);
}

template <typename Line>
void keepLine(const Line* line, const char* message) {
    keep(line->priority, line->tag, message);
}

class AndroidLog : public ::testing::Test {
protected:
    void SetUp() override {
        gLines.clear();
        __android_log_set_logger(keepLine);
        setPriority(ANDROID_LOG_DEFAULT);
    }

    static void setPriority(int priority) {
        __android_log_set_minimum_priority(priority);
        zarn::refreshLogLevel();
    }
};

void print(int level) {
    PS_LOG(level, "level %d of %s", level, "five");
}

}  // namespace

TEST_F(AndroidLog, EachLevelHasItsPriorityAndTheModuleIsTheTag) {
    setPriority(ANDROID_LOG_VERBOSE);
    for (int level = 0; level <= 6; ++level) print(level);
    EXPECT_EQ(gLines,
              (std::vector<std::string>{"E ParamSet: print: level 1 of five", "W ParamSet: print: level 2 of five",
                                        "I ParamSet: print: level 3 of five", "D ParamSet: print: level 4 of five",
                                        "V ParamSet: print: level 5 of five"}));
}

// If the null text were formatted, the program would crash.
TEST_F(AndroidLog, LevelThatTheDeviceDoesNotLogIsNotFormatted) {
    const char* const noText = reinterpret_cast<const char*>(1);
    for (int level = 4; level <= 5; ++level) PS_LOG(level, "%s", noText);  // off unless the device sets them
    setPriority(ANDROID_LOG_ERROR);
    for (int level = 2; level <= 5; ++level) PS_LOG(level, "%s", noText);
    print(1);
    setPriority(ANDROID_LOG_SILENT);
    for (int level = 1; level <= 5; ++level) PS_LOG(level, "%s", noText);
    EXPECT_EQ(gLines, (std::vector<std::string>{"E ParamSet: print: level 1 of five"}));
}

// 4068 bytes: the priority, and the tag and the message with their terminating zeros.
TEST_F(AndroidLog, LineIsCutOnlyAtTheLimitOfTheLog) {
    constexpr size_t kLongest = 4068 - 1 - sizeof("ParamSet") - 1;
    const std::string begin = std::to_string(__LINE__ + 3) + ", TestBody: ";
    for (size_t length : {1023u, 1024u, 4000u, 5000u}) {
        const std::string text(length, 'x');
        PS_LOG(1, "%s", text.c_str());
        const std::string whole = begin + text;
        EXPECT_EQ(gLines.back(), "E ParamSet: " + whole.substr(0, kLongest).substr(whole.find(", ") + 2)) << length;
    }
}

// The host's log facility is linked too, and receives nothing.
TEST_F(AndroidLog, LibraryOfADeviceLogsToThePlatformsLog) {
    testing::internal::CaptureStderr();
    zarn::ParamSet::createInstance();
    zarn::ParamSet::destroyInstance();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(gLines, (std::vector<std::string>{"I ParamSet: createInstance: create", "I ParamSet: ParamSet: E",
                                                "I ParamSet: ParamSet: X", "I ParamSet: destroyInstance: destory"}));
}
