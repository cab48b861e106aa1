// One access to a value of a pipe, and its outcome. Both are complete when they are made, and are valid until
// ParamSet::mMutex is released.

#ifndef PARAMSET_REQUEST_H
#define PARAMSET_REQUEST_H

#include "src/pipe_store.h"

namespace zarn {

inline bool isPipe(int pipe) {
    return static_cast<uint32_t>(pipe) < MAX_PIPE_NUM;
}

// What is asked for.
struct ParamSet::Request {
    PipeStore& pipe;
    PipeStore::Tag& tag;
    uint32_t frameID;
    int modifiable;  // nonzero: a write
};

// What answers.
struct ParamSet::Answer {
    const Buffer& value;              // the frame's own entry, not a copy; empty: no buffer
    const RegisteredTag* registered;  // null: the tag is not registered
};

}  // namespace zarn

#endif  // PARAMSET_REQUEST_H
