// A flicker is a read that did not get its frame's own value, or that waited until its time-out. It has a chain of
// reasons, as far as the log tells them.

#ifndef PSLOG_FLICKER_H
#define PSLOG_FLICKER_H

#include <cstdint>
#include <optional>
#include <vector>

#include "interpreter.h"

namespace pslog {

enum class Cause {
    NOT_KNOWN,        ///< the log does not say, for example because it lacks level 5
    LATE,             ///< the value came after the read
    NEVER_DELIVERED,  ///< the value never came
    PLAIN_SET,        ///< a plain set stored the value, which wakes nobody
    WAKE_LOST,        ///< delivered in time, but the reader slept until its time-out
    NOT_RUN,          ///< delivered in time, but the reader got no processor until after its time-out
    ERASED,           ///< an explicit erase removed the value before it was read
    TRIMMED,          ///< newer values replaced the value before it was read
    NOT_REGISTERED,   ///< the tag was never registered
    FRAME_GONE,       ///< an erase of another tag removed the frame
    STORE_ENDED       ///< the store was destroyed before the value came
};
constexpr size_t CAUSE_COUNT = 11;

/// Why a value was not there when it was read: one link of a chain.
struct Reason {
    Cause cause = Cause::NOT_KNOWN;
    Cause orElse = Cause::NOT_KNOWN;  ///< another possible cause, which the log cannot rule out
    Key key;                          ///< the value
    uint32_t frame = 0;
    uint32_t thread = 0;       ///< the thread that delivers, erases, or slept; 0 if the log does not say
    int64_t lateUs = UNKNOWN;  ///< LATE: time from the end of the read to the value
    int64_t busyUs = UNKNOWN;  ///< LATE, last link: how long the thread worked on something else
    uint32_t busyFrame = 0;    ///< the frame of that work; 0 if the log does not say
    int64_t waitUs = UNKNOWN;  ///< LATE, other links: how long the thread waited for the next link's value
    int64_t retain = UNKNOWN;  ///< ERASED, TRIMMED: the retain number that would have been enough
    int64_t timeUs = UNKNOWN;  ///< when the value came or was removed
    uint64_t line = 0;
};

struct Flicker {
    Key key;
    uint32_t frame = 0;
    int64_t timeUs = 0;  ///< time of the answer
    uint64_t line = 0;
    uint32_t thread = 0;  ///< the reader; 0 if the log does not say
    Answer answer = Answer::NOT_KNOWN;
    uint32_t answeredBy = 0;    ///< the frame whose value was read, even if from frame 0's copy; 0 if not known
    bool failed = false;        ///< nothing was copied
    bool isPlain = false;       ///< a plain get, which does not wait
    int timeOuts = 0;           ///< number of time-outs of the reader, in a row
    int64_t waitMs = 0;         ///< length of all these waits; UNKNOWN if the log does not say
    std::vector<Reason> chain;  ///< from the value that was read to the root cause; never empty

    /// How many frames back the value was (negative: ahead). No value if the log does not say.
    std::optional<int64_t> framesOff() const {
        if (answer == Answer::ITSELF) return 0;
        if (answeredBy == 0) return std::nullopt;
        return int64_t{frame} - answeredBy;
    }
    /// Whether the value was not the frame's own.
    bool isFallBack() const { return failed || answer == Answer::EARLIER || answer == Answer::FRAME_0; }
    const Reason& root() const { return chain.back(); }
};

/// Whether a is worse than b. The worst are reads that copied nothing, then reads of an unknown value, then those that
/// are more frames off, then those that waited longer.
bool isWorse(const Flicker& a, const Flicker& b);

}  // namespace pslog

#endif  // PSLOG_FLICKER_H
