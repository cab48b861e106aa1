// For a program on a host that does not look at the abort message.

#include <android/set_abort_message.h>

void android_set_abort_message(const char*) {}
