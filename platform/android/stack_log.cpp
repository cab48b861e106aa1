// The log level if the camera stack has a log facility of its own. Only that facility knows what it prints, so it is
// given every line.

#include "platform/platform.h"

int pipeline_log_greatest = 5;

void platform_refresh_log_level() {}
