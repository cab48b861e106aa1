// The platform of a Linux host: small stand-ins for the device's property service, camera metadata library and log
// facility, and what a test or a program on a host needs to steer them. Everything here is thread-safe, and may be
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
/// It overrides the file that the environment variable PARAMSET_PROPERTIES names, which is read when a property is
/// first set or asked for: lines of key=value, the last one of a key counting. A # starts a comment anywhere in a line;
/// blanks around key and value are dropped. Each line that is no property, and a file that cannot be read, is told on
/// standard error in one line; the rest of the file counts.
int property_set(const char* key, const char* value);
}

namespace host {

/// Sets the greatest level that is printed, 0 (none) to 5; others are taken as the nearest of these. At load it comes
/// from the environment variable PARAMSET_LOG, 3 unless set.
void setLogLevel(int level);
int logLevel();

/// Takes the lines instead of standard error: the message is whole, line breaks included, without level letter, module
/// or line end, and valid for the call only. Called by one thread at a time. It must neither log nor call the store,
/// nor install a sink.
using LogSink = void (*)(void* context, pipeline_loglevel level, const char* module, const char* message);

/// Installs a sink; null goes back to standard error, where each message is one line, `<letter> <module>: <message>`,
/// written whole, its line breaks turned into blanks. If the environment variable PARAMSET_LOG_TIME was set (and not to
/// 0) at load, local time, process id and thread id stand before it, as in a device's log. When this returns, the
/// earlier sink is not running any more and will not be called again.
void setLogSink(LogSink sink, void* context);

/// Makes a metadata record of a copy of the bytes, which may be null if the size is 0. Free it with
/// free_camera_metadata. Null if memory ran out.
camera_metadata* makeMetadata(const void* bytes, size_t size);

/// Size and bytes of a record, which is not null. The bytes stay valid until the record is freed.
size_t metadataSize(const camera_metadata* metadata);
const uint8_t* metadataBytes(const camera_metadata* metadata);

/// Number of records that were made or cloned and not yet freed.
size_t liveMetadata();

}  // namespace host

#endif  // PARAMSET_HOST_PLATFORM_H
