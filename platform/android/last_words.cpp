// What a process on a device reports before it ends, since services have no standard error there: the line goes to the
// abort message, which the crash report shows, and to the platform's log. Never to the camera stack's own log facility,
// because that may allocate.

#include <android/log.h>
#include <android/set_abort_message.h>

#include "platform/platform.h"

void platform_last_words(const char* line) {
    android_set_abort_message(line);
    __android_log_write(ANDROID_LOG_FATAL, "ParamSet", line);
}
