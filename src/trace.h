// The trace switch: while a call works on the traced tag, its tracing lines have level 4 instead of 5.

#ifndef PARAMSET_TRACE_H
#define PARAMSET_TRACE_H

#include "include/paramset.h"
#include "platform/log.h"
#include "src/relaxed.h"

// Text of the line that ends every get and set, after its first word.
#define PS_COPY_TEXT "camID: %d, pipe: %d, frameID: %d, tag: %d,intrData:%p,extrData:%p,tagSize:%d"

namespace zarn {

inline bool isTracedTag(uint32_t tag) {
    return static_cast<uint32_t>(loadRelaxed(ps_log_tag)) == tag;
}

inline int traceLevel() {
    return loadRelaxed(ps_log) != 0 ? 4 : 5;
}

}  // namespace zarn

// A tracing line: level 4 while ps_log is set, else 5.
#define PS_TRACE(...)                                                   \
    do {                                                                \
        if (zarn::isLogged(4)) PS_LOG(zarn::traceLevel(), __VA_ARGS__); \
    } while (false)

#endif  // PARAMSET_TRACE_H
