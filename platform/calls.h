// What the store wants of the platform, beside the log: its calls into system properties and the metadata library, and
// the end of a process that has no memory.

#ifndef PARAMSET_PLATFORM_CALLS_H
#define PARAMSET_PLATFORM_CALLS_H

struct camera_metadata;

namespace zarn {

/// The number that a system property begins with; 0 if it is unset, or no number.
int readSwitch(const char* key);

/// A copy of the caller's record, for freeMetadata; null if the platform could not make one.
camera_metadata* cloneMetadata(const camera_metadata* source);
void freeMetadata(camera_metadata* metadata);

/// Ends the process, after the line has been told on standard error and where the platform keeps such a line.
[[noreturn]] void endProcess(const char* line);

}  // namespace zarn

#endif  // PARAMSET_PLATFORM_CALLS_H
