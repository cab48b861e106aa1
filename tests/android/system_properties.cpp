// A device's header defines as a macro what ours declares too, and a program may include them in either order.

#ifndef OURS_FIRST
#include <sys/system_properties.h>
#endif

#include "platform/platform.h"

#ifdef OURS_FIRST
#include <sys/system_properties.h>
#endif

static_assert(PROP_VALUE_MAX == 92);
