// A definition that does nothing, for programs on a host that do not check the abort message.

#include <android/set_abort_message.h>

void android_set_abort_message(const char*) {}
