// The pipeline log facility of a device whose camera stack brings none: each line goes to the platform's log.
// State: pipeline_log_greatest, atomic. Its symbols are hidden in the library, so that they neither replace the log
// facility of another module nor are replaced by it.

#include <android/log.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace {

// The greatest level that is printed if the device sets none. At the next level, one line for each wait fills the log.
constexpr pipeline_loglevel kDefault = PIPELINE_LOG_INFO;

// The most bytes of one log entry: one for the priority, then the module and the message with their terminating zeros.
constexpr size_t kLogPayload = 4068;

int priorityOf(pipeline_loglevel level) {
    switch (level) {
        case PIPELINE_LOG_ERROR: return ANDROID_LOG_ERROR;
        case PIPELINE_LOG_WARNING: return ANDROID_LOG_WARN;
        case PIPELINE_LOG_INFO: return ANDROID_LOG_INFO;
        case PIPELINE_LOG_DEBUG: return ANDROID_LOG_DEBUG;
        case PIPELINE_LOG_VERBOSE: return ANDROID_LOG_VERBOSE;
    }
    return ANDROID_LOG_SILENT;  // no such level: printed nowhere
}

bool isPrinted(int level) {
    const int priority = priorityOf(static_cast<pipeline_loglevel>(level));
    return __android_log_is_loggable(priority, "ParamSet", priorityOf(kDefault)) != 0;
}

}  // namespace

int pipeline_log_greatest = kDefault;

void platform_refresh_log_level() {
    int greatest = PIPELINE_LOG_VERBOSE;
    while (greatest > 0 && !isPrinted(greatest)) --greatest;
    __atomic_store_n(&pipeline_log_greatest, greatest, __ATOMIC_RELAXED);
}

void LogMessage::__print_log_(const char* format, ...) const noexcept {
    const int priority = priorityOf(mLevel);
    if (priority == ANDROID_LOG_SILENT) return;
    const int errorNumber = errno;
    char message[kLogPayload];
    const size_t taken = 1 + std::strlen(mModule) + 1;
    va_list arguments;
    va_start(arguments, format);
    // Not __android_log_print: its buffer is a quarter of kLogPayload.
    const int length = std::vsnprintf(message, sizeof(message) - taken, format, arguments);
    va_end(arguments);
    __android_log_write(priority, mModule, length < 0 ? format : message);
    errno = errorNumber;
}
