/* The declarations of Android 13's log library that we use and that differ in Debian's older version. */

#ifndef PARAMSET_TESTS_ANDROID_13_LOG_H
#define PARAMSET_TESTS_ANDROID_13_LOG_H

#include <stddef.h>
#include <stdint.h>

enum {
    ANDROID_LOG_UNKNOWN,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
};

struct __android_log_message {
    size_t struct_size;
    int32_t buffer_id;
    int32_t priority;
    const char* tag;
    const char* file;
    uint32_t line;
    const char* message;
};

typedef void (*__android_logger_function)(const struct __android_log_message* message);

extern "C" {
void __android_log_set_logger(__android_logger_function logger);
int32_t __android_log_set_minimum_priority(int32_t priority);
}

#endif
