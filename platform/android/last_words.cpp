// The last words of a process on a device, whose services have no standard error: the abort message, which the crash
// report shows, and the platform's log, also where the camera stack has one of its own, which may allocate.

#include <android/log.h>
#include <android/set_abort_message.h>

#include "platform/platform.h"

void platform_last_words(const char* line) {
    android_set_abort_message(line);
    __android_log_write(ANDROID_LOG_FATAL, "ParamSet", line);
}
