// The log of a device: the library as it is built for one, its properties and metadata excepted, on the platform's own
// log library, with a function of this program in place of the device's log.

#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "paramset.h"
#include "platform/log.h"

namespace {

std::vector<std::string> gLines;

// "<priority letter> <tag>: <message>", the source line left out.
void keepLine(const __android_logger_data* line, const char* message) {
    const std::string text = message;
    gLines.push_back(std::string(1, "??VDIWEF"[line->priority]) + " " + line->tag + ": " +
                     text.substr(text.find(", ") + 2));
}

class AndroidLog : public ::testing::Test {
protected:
    void SetUp() override {
        gLines.clear();
        __android_log_set_logger(keepLine);
        __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT);
    }
};

void print(int level) {
    PS_LOG(level, "level %d of %s", level, "five");
}

}  // namespace

TEST_F(AndroidLog, EachLevelHasItsPriorityAndTheModuleIsTheTag) {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    for (int level = 0; level <= 6; ++level) print(level);
    EXPECT_EQ(gLines,
              (std::vector<std::string>{"E ParamSet: print: level 1 of five", "W ParamSet: print: level 2 of five",
                                        "I ParamSet: print: level 3 of five", "D ParamSet: print: level 4 of five",
                                        "V ParamSet: print: level 5 of five"}));
}

// Formatting the text that is not there would end the program.
TEST_F(AndroidLog, LevelThatTheDeviceDoesNotLogIsNotFormatted) {
    const char* const noText = reinterpret_cast<const char*>(1);
    PS_LOG(5, "%s", noText);  // off unless asked for
    __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
    for (int level = 2; level <= 5; ++level) PS_LOG(level, "%s", noText);
    print(1);
    EXPECT_EQ(gLines, (std::vector<std::string>{"E ParamSet: print: level 1 of five"}));
}

// The host's facility is there as well, and gets nothing.
TEST_F(AndroidLog, LibraryOfADeviceLogsThere) {
    testing::internal::CaptureStderr();
    zarn::ParamSet::createInstance();
    zarn::ParamSet::destroyInstance();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(gLines, (std::vector<std::string>{"I ParamSet: createInstance: create", "I ParamSet: ParamSet: E",
                                                "I ParamSet: ParamSet: X", "I ParamSet: destroyInstance: destory"}));
}
