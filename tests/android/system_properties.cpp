// A device's header defines a macro that platform.h defines too; a program may include the two in either order.

#ifndef OURS_FIRST
#include <sys/system_properties.h>
#endif

#include "platform/platform.h"

#ifdef OURS_FIRST
#include <sys/system_properties.h>
#endif

static_assert(PROP_VALUE_MAX == 92);
