/* The macro of a device's own header that our header defines too. */

#define PROP_VALUE_MAX 92
