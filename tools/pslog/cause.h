// Finds out why a read did not get its frame's own value in time, from the log before and after it.

#ifndef PSLOG_CAUSE_H
#define PSLOG_CAUSE_H

#include <vector>

#include "flicker.h"
#include "recent.h"

namespace pslog {

/// A get of a value, or several gets of the same value in a row.
struct Read {
    Key key;
    uint32_t frame = 0;
    Index begin = NEVER;  ///< when the get began
    Index end = NEVER;    ///< the end of the last wait that timed out; the answer if none did
    bool waited = false;
    bool timedOut = false;
    int64_t waitMs = 0;  ///< length of the last wait that timed out
    bool failed = false;
    Failure failure = Failure::OTHER;
    bool erased = false;       ///< the frame was at or below the erase point
    int64_t needed = UNKNOWN;  ///< if erased: the retain number that would have been enough
    Answer answer = Answer::NOT_KNOWN;
    uint32_t found = 0;  ///< the checkpoint that answered, or should have answered
};

/// The chain of reasons, from the value that was read to the root cause.
std::vector<Reason> reasonsOf(const Read& read, const Recent& recent, const Tags& tags);

}  // namespace pslog

#endif  // PSLOG_CAUSE_H
