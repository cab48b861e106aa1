// The log of a device whose camera stack has its own log facility: it receives all levels, and nothing else is called.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/log.h"

namespace {

std::string gLog;

}  // namespace

LogMessage _log(const std::string& module, pipeline_loglevel level) {
    return {module + " " + std::to_string(static_cast<int>(level)) + " "};
}

void LogMessage::__print_log_(const char* format, ...) {
    char text[100];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    gLog += begin + text;
}

TEST(AndroidStackLog, GetsEveryLevel) {
    for (int level = 1; level <= 5; ++level) {
        gLog.clear();
        PS_LOG(level, "text %d", 7);
        EXPECT_EQ(gLog.substr(0, 11), "ParamSet " + std::to_string(level) + " ");
        EXPECT_EQ(gLog.substr(gLog.find(',')), ", TestBody: text 7");
    }
}
