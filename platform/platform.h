// The platform's interfaces that the store calls: system properties, the camera metadata library, the pipeline log
// facility, and the report of a process that is about to end. On a device other libraries define them (platform/android
// those that a device lacks); on a host platform/host does. The library leaves them undefined, except those of
// platform/android, so a program that links its own definitions first replaces them.

#ifndef PARAMSET_PLATFORM_H
#define PARAMSET_PLATFORM_H

struct camera_metadata;

/// Bytes of the longest value of a property, with its terminating zero. A macro, because it is one in a device's
/// header.
#ifndef PROP_VALUE_MAX
#define PROP_VALUE_MAX 92
#endif

extern "C" {

/// Copies the value of a property, or the default if it is unset, into a buffer of PROP_VALUE_MAX bytes.
/// Returns its length. The default may be null.
int property_get(const char* key, char* value, const char* default_value);

/// A copy of a metadata record, for free_camera_metadata to free; null if it could not be made.
camera_metadata* clone_camera_metadata(const camera_metadata* source);
void free_camera_metadata(camera_metadata* metadata);

/// Greatest level that the log facility prints now, 0 if none. It may change at any time, so it is read and written
/// with relaxed atomic builtins.
extern int pipeline_log_greatest;

/// Updates pipeline_log_greatest, on a platform where the log facility must be asked for the level.
void platform_refresh_log_level(void);

/// Reports why the process is about to end to the platform's own places, beside standard error. Allocates nothing.
void platform_last_words(const char* line);
}

#ifdef PARAMSET_STACK_LOG_HEADER
// The camera stack's own log facility, as its header declares it.
#include PARAMSET_STACK_LOG_HEADER
#else

/// Levels of the pipeline log facility.
enum pipeline_loglevel {
    PIPELINE_LOG_ERROR = 1,
    PIPELINE_LOG_WARNING = 2,
    PIPELINE_LOG_INFO = 3,
    PIPELINE_LOG_DEBUG = 4,
    PIPELINE_LOG_VERBOSE = 5,
};

/// One line to be printed to the log. Made by _log.
class LogMessage {
public:
    LogMessage(const char* module, pipeline_loglevel level) : mModule(module), mLevel(level) {}

    /// Prints the line. It must not throw: the store calls it with its mutex held.
    void __print_log_(const char* format, ...) const noexcept __attribute__((cold, format(printf, 2, 3)));

private:
    const char* mModule;
    pipeline_loglevel mLevel;
};

inline LogMessage _log(const char* module, pipeline_loglevel level) {
    return LogMessage(module, level);
}

#endif  // PARAMSET_STACK_LOG_HEADER

#endif  // PARAMSET_PLATFORM_H
