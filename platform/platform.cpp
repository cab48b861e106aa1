// The store's calls into the platform's property service and metadata library, and the end of a process that has run
// out of memory. No state, no lock.

#include "platform/platform.h"

#include <cstdio>
#include <cstdlib>

#include "platform/calls.h"

namespace zarn {

int readSwitch(const char* key) {
    char value[PROP_VALUE_MAX] = {};
    property_get(key, value, nullptr);
    return std::atoi(value);
}

camera_metadata* cloneMetadata(const camera_metadata* source) {
    return clone_camera_metadata(source);
}

void freeMetadata(camera_metadata* metadata) {
    free_camera_metadata(metadata);
}

void endProcess(const char* line) {
    std::fprintf(stderr, "%s\n", line);
    platform_last_words(line);
    std::abort();
}

}  // namespace zarn
