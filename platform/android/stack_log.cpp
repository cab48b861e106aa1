// The threshold of the log statements where the camera stack has a log facility of its own: that alone knows what it
// prints, and is given every line.

#include "platform/platform.h"

int pipeline_log_greatest = 5;

void platform_refresh_log_level() {}
