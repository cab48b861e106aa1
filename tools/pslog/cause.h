// Why a read was not served: from what the log has before and after it.

#ifndef PSLOG_CAUSE_H
#define PSLOG_CAUSE_H

#include <vector>

#include "flicker.h"
#include "recent.h"

namespace pslog {

/// One get of a value, or several for the same one that followed one another.
struct Read {
    Key key;
    uint32_t frame = 0;
    Index begin = NEVER;  ///< when it was asked for
    Index end = NEVER;    ///< when the last wait ended that timed out; of a read without such, the answer
    bool waited = false;
    bool timedOut = false;
    int64_t waitMs = 0;  ///< of the last wait that timed out
    bool failed = false;
    Failure failure = Failure::OTHER;
    bool erased = false;       ///< asked for at or below the erase point
    int64_t needed = UNKNOWN;  ///< then the retain number that would have served
    Answer answer = Answer::NOT_KNOWN;
    uint32_t found = 0;  ///< the checkpoint that answered, or should have
};

/// The reasons, from the value that was read to the root.
std::vector<Reason> reasonsOf(const Read& read, const Recent& recent, const Tags& tags);

}  // namespace pslog

#endif  // PSLOG_CAUSE_H
