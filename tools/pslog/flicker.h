// A flicker: a read that was not answered by its frame's own value, or waited until its time-out; and the reasons that
// the log gives for it.

#ifndef PSLOG_FLICKER_H
#define PSLOG_FLICKER_H

#include <cstdint>
#include <optional>
#include <vector>

#include "interpreter.h"

namespace pslog {

enum class Cause {
    NOT_KNOWN,        ///< the log does not say, as one without level 5
    LATE,             ///< the value came after the read
    NEVER_DELIVERED,  ///< it never came
    PLAIN_SET,        ///< it came by a plain set, which wakes nobody
    WAKE_LOST,        ///< it was delivered in time, but the reader slept on until its time-out
    NOT_RUN,          ///< it was delivered in time, but the reader got no processor until after its time-out
    ERASED,           ///< it was there, but an explicit erase took it before it was read
    TRIMMED,          ///< it was there, but newer values took its place before it was read
    NOT_REGISTERED,   ///< the tag was never registered
    FRAME_GONE,       ///< its frame went with the erase of another tag
    STORE_ENDED       ///< the store was destroyed before it came
};
constexpr size_t CAUSE_COUNT = 11;

/// Why a value was not there when it was read: one link of a chain.
struct Reason {
    Cause cause = Cause::NOT_KNOWN;
    Cause orElse = Cause::NOT_KNOWN;  ///< what the log cannot tell the cause from
    Key key;                          ///< the value
    uint32_t frame = 0;
    uint32_t thread = 0;       ///< whose doing: who delivers, erases, or slept on; 0 if the log does not say
    int64_t lateUs = UNKNOWN;  ///< LATE: from the end of the read to the value
    int64_t busyUs = UNKNOWN;  ///< LATE, the last link: how long the thread did something else than to wait
    uint32_t busyFrame = 0;    ///< and for which frame; 0 if the log does not say
    int64_t waitUs = UNKNOWN;  ///< LATE, not the last link: how long the thread waited for the next link's value
    int64_t retain = UNKNOWN;  ///< ERASED, TRIMMED: the retain number that would have served
    int64_t timeUs = UNKNOWN;  ///< when the value came, went, or was to be had
    uint64_t line = 0;
};

struct Flicker {
    Key key;
    uint32_t frame = 0;
    int64_t timeUs = 0;  ///< of the answer
    uint64_t line = 0;
    uint32_t thread = 0;  ///< who read; 0 if the log does not say
    Answer answer = Answer::NOT_KNOWN;
    uint32_t answeredBy = 0;    ///< the frame whose value was got, also if frame 0 had a copy of it; 0 if none is known
    bool failed = false;        ///< nothing was copied
    bool isPlain = false;       ///< of a get that does not wait
    int timeOuts = 0;           ///< of the reader, one after the other
    int64_t waitMs = 0;         ///< of all of them; UNKNOWN if the log does not say
    std::vector<Reason> chain;  ///< from the value that was read to the root; never empty

    /// How many frames back the value was, or, if negative, ahead; none if the log does not say.
    std::optional<int64_t> framesOff() const {
        if (answer == Answer::ITSELF) return 0;
        if (answeredBy == 0) return std::nullopt;
        return int64_t{frame} - answeredBy;
    }
    /// Whether not the frame's own value was got.
    bool isFallBack() const { return failed || answer == Answer::EARLIER || answer == Answer::FRAME_0; }
    const Reason& root() const { return chain.back(); }
};

/// Whether a is worse than b: nothing was copied, nobody knows what, more frames off, longer waited.
bool isWorse(const Flicker& a, const Flicker& b);

}  // namespace pslog

#endif  // PSLOG_FLICKER_H
