// The store's calls into the platform, except the log: system properties, the metadata library, and the end of a
// process that has run out of memory.

#ifndef PARAMSET_PLATFORM_CALLS_H
#define PARAMSET_PLATFORM_CALLS_H

struct camera_metadata;

namespace zarn {

/// The number that a system property begins with; 0 if it is unset, or no number.
int readSwitch(const char* key);

/// A copy of the caller's record, for freeMetadata; null if the platform could not make one.
camera_metadata* cloneMetadata(const camera_metadata* source);
void freeMetadata(camera_metadata* metadata);

/// Prints the line on standard error, passes it to platform_last_words, and ends the process.
[[noreturn]] void endProcess(const char* line);

}  // namespace zarn

#endif  // PARAMSET_PLATFORM_CALLS_H
