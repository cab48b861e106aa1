// The pipeline log facility of a device whose camera stack brings none: each line goes to the platform's log.
// Holds no state. Hidden in the library, so that no other module's facility takes its place or is replaced.

#include <android/log.h>

#include <cstdarg>

#include "platform/platform.h"

namespace {

// With nothing else said on the device, levels up to debug are printed: a trace that the log switches raise to level 4
// shows, while level 5 stays off until the device's setting for the module asks for it.
constexpr int kDefaultPriority = ANDROID_LOG_DEBUG;

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

}  // namespace

void LogMessage::__print_log_(const char* format, ...) const noexcept {
    const int priority = priorityOf(mLevel);
    if (priority == ANDROID_LOG_SILENT || __android_log_is_loggable(priority, mModule, kDefaultPriority) == 0) return;
    va_list arguments;
    va_start(arguments, format);
    __android_log_vprint(priority, mModule, format, arguments);
    va_end(arguments);
}
