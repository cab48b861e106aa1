// One access to a value of a pipe, and what comes of it. Each is complete when it is made, and lives for one stretch
// under ParamSet::mMutex.

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
    const Buffer& value;              // where its frame holds it; empty: none
    const RegisteredTag* registered;  // null: the tag is not registered
};

}  // namespace zarn

#endif  // PARAMSET_REQUEST_H
