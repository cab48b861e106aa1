// The three platform interfaces that the store calls, declared once: system properties, the camera metadata library
// and the pipeline log facility; and the last words of a process. On a device they are other libraries' symbols; on a
// host platform/host supplies them. The library leaves them undefined (but for what platform/android has for a device),
// so whoever links definitions of their own first replaces them.

#ifndef PARAMSET_PLATFORM_H
#define PARAMSET_PLATFORM_H

struct camera_metadata;

/// Longest value of a property, with its terminating zero. A macro, since a device's own header has it as one.
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

/// Greatest level that the log facility prints now, 0 if none. It may change at any time: relaxed atomic builtins.
extern int pipeline_log_greatest;

/// Brings pipeline_log_greatest up to date, where the facility has to be asked for it.
void platform_refresh_log_level(void);

/// Tells why the process is about to end, wherever the platform keeps that beside standard error. Allocates nothing.
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

/// One line on its way to the log. Made by _log.
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
