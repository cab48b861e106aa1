// The threshold of the log statements on a device. No log facility there tells a greatest level that holds for all its
// levels and settings, so that every statement asks the facility, which drops a line before it formats it.

#include "platform/platform.h"

int pipeline_log_greatest = 5;
