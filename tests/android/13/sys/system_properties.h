/* What a device's own header defines of what ours declares too. */

#define PROP_VALUE_MAX  92
