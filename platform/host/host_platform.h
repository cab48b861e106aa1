// The platform of a Linux host: small stand-ins for the device's property service, camera metadata library and log
// facility, and the functions by which a test or a program controls them. Everything here is thread-safe, and may be
// used up to the end of the process, by destructors of static objects too.

#ifndef PARAMSET_HOST_PLATFORM_H
#define PARAMSET_HOST_PLATFORM_H

#include <cstddef>
#include <cstdint>

#include "platform/platform.h"

extern "C" {

/// Sets a property for this process.
/// Returns 0, or -1 with nothing changed if the key is null or empty or the value has PROP_VALUE_MAX bytes or more.
/// A null value counts as an empty one, which reads as unset.
///
/// A property that is set here overrides the file that the environment variable PARAMSET_PROPERTIES names. The file is
/// read when a property is first set or asked for. Its lines are key=value; the last line of a key counts. A # starts a
/// comment anywhere in a line, and blanks around key and value are dropped. A line that is no property, or a file that
/// cannot be read, is reported in one line on standard error; the rest of the file is used.
int property_set(const char* key, const char* value);
}

namespace host {

/// Sets the greatest level that is printed, 0 (none) to 5; other numbers are taken as the nearest of these. When the
/// library is loaded, it is set from the environment variable PARAMSET_LOG, or to 3 if that is unset.
void setLogLevel(int level);
int logLevel();

/// A function that receives the messages instead of standard error. A message is complete, with its line breaks,
/// without level letter, module or line end, and valid during the call only. One thread at a time calls it. It must not
/// log, call the store or install a sink.
using LogSink = void (*)(void* context, pipeline_loglevel level, const char* module, const char* message);

/// Installs a sink. With null the messages go to standard error again, each as one whole line, `<letter> <module>:
/// <message>`, with blanks in place of its line breaks. If the environment variable PARAMSET_LOG_TIME was set (and not
/// to 0) when the library was loaded, the line begins with local time, process id and thread id, as in a device's log.
/// When this returns, the earlier sink is not running any more and will not be called again.
void setLogSink(LogSink sink, void* context);

/// Makes a metadata record from a copy of the bytes; they may be null if the size is 0. Free the record with
/// free_camera_metadata. Null if memory ran out.
camera_metadata* makeMetadata(const void* bytes, size_t size);

/// Size and bytes of a record, which must not be null. The bytes stay valid until the record is freed.
size_t metadataSize(const camera_metadata* metadata);
const uint8_t* metadataBytes(const camera_metadata* metadata);

/// Number of records that were made or cloned and not yet freed.
size_t liveMetadata();

}  // namespace host

#endif  // PARAMSET_HOST_PLATFORM_H
