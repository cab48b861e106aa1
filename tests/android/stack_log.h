/* A camera stack's own log facility: it has the names of ours, and nothing else in common. */

#ifndef PARAMSET_TESTS_ANDROID_STACK_LOG_H
#define PARAMSET_TESTS_ANDROID_STACK_LOG_H

#include <string>

enum class pipeline_loglevel : char {};

struct LogMessage {
    std::string begin;

    void __print_log_(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

LogMessage _log(const std::string& module, pipeline_loglevel level);

#endif  // PARAMSET_TESTS_ANDROID_STACK_LOG_H
