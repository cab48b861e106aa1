// See cause.h.

#include "cause.h"

#include <algorithm>
#include <optional>

#include "paramset.h"

namespace pslog {

namespace {

/// If a value came this shortly before a time-out, the log cannot tell whether it still was in time.
constexpr int64_t TOO_CLOSE_US = 5000;

/// A wait that lasts longer than its time-out by more than this was held up.
constexpr int64_t EXACT_MS = 2;

/// A stretch that takes longer than usual by this much is the cause of a delay.
constexpr int64_t UNUSUAL_US = 3000;

constexpr size_t LONGEST_CHAIN = 8;

int64_t retainOf(int64_t tag, const Tags& tags) {
    const auto info = tags.find(tag);
    return info != tags.end() ? info->second.retain : UNKNOWN;
}

class Explainer {
public:
    Explainer(const Recent& recent, const Tags& tags) : mRecent(recent), mTags(tags) {}

    std::vector<Reason> explain(Read read) {
        std::vector<Reason> chain;
        while (chain.size() < LONGEST_CHAIN) {
            chain.push_back(reasonOf(read));
            const Reason& reason = chain.back();
            if (reason.cause != Cause::LATE || !followDelay(read, chain.back())) break;
            const auto isSame = [this](const Reason& r) { return r.key == mNext.key && r.frame == mNext.frame; };
            if (std::any_of(chain.begin(), chain.end(), isSame)) break;
            read = mNext;
        }
        return chain;
    }

private:
    Reason reasonOf(const Read& read) const {
        Reason reason;
        reason.key = read.key;
        reason.frame = read.frame;
        if (read.failure == Failure::NOT_REGISTERED) return with(reason, Cause::NOT_REGISTERED, read.end);
        if (read.begin == NEVER) return reason;
        const Value value = mRecent.valueOf(read.key, read.frame);
        const KeyFacts* facts = mRecent.find(read.key);
        const bool isUnregistered = facts != nullptr && facts->isUnregistered && value.firstSet() == NEVER;
        if (isUnregistered) return with(reason, Cause::NOT_REGISTERED, read.end);
        if (value.gone < read.end && read.answer != Answer::ITSELF) return gone(read, value.gone, reason);
        if (value.delivered < read.end && read.timedOut) return missed(read, value, reason);
        if (value.delivered < read.end && read.waited) return late(read, value.delivered, reason);
        if (value.plain < read.end && read.timedOut) return with(reason, Cause::PLAIN_SET, value.plain);
        if (const std::optional<Reason> gone = lost(read, value, reason)) return *gone;
        if (value.setAfter(read.end) != NEVER) return late(read, value.setAfter(read.end), reason);
        return never(read, reason);
    }

    Reason with(Reason reason, Cause cause, Index culprit) const {
        reason.cause = cause;
        reason.thread = mRecent.threadOf(culprit);
        if (const Event* event = mRecent.at(culprit)) {
            reason.timeUs = event->timeUs;
            reason.line = event->line;
        }
        return reason;
    }

    /// A delivery came before or during the wait, and did not end it.
    Reason missed(const Read& read, const Value& value, const Reason& reason) const {
        // The read waited in a frame that was removed. The value came in a new frame with the same id.
        if (read.failed && read.failure == Failure::NO_BUFFER) return frameGone(read, reason);
        if (value.plain < value.delivered && !value.notified) return with(reason, Cause::PLAIN_SET, value.plain);
        const Event* end = mRecent.at(read.end);
        const Event* delivered = mRecent.at(value.delivered);
        if (end != nullptr && delivered != nullptr && end->timeUs - delivered->timeUs <= TOO_CLOSE_US) {
            Reason justLate = late(read, value.delivered, reason);
            justLate.orElse = Cause::WAKE_LOST;
            return justLate;
        }
        Reason slept = with(reason, Cause::WAKE_LOST, value.delivered);
        slept.thread = mRecent.threadOf(read.end);
        judgeSleep(read, value, slept);
        return slept;
    }

    /// A wake-up can only be lost in the instant in which a wait begins, and the wait then ends at its time-out. If
    /// several readers miss the same wake-up, or the wait lasts longer than its time-out, a busy machine is more
    /// likely.
    void judgeSleep(const Read& read, const Value& value, Reason& slept) const {
        const Event* end = mRecent.at(read.end);
        if (end == nullptr) return;
        const Recent::TimeOut timeOut = mRecent.timeOutOf(read.key, end->thread);
        const bool isExact = read.waitMs <= timeOut.ms + EXACT_MS;
        const bool isDefault = read.waitMs >= DEFAULT_WAIT_MS && read.waitMs <= DEFAULT_WAIT_MS + EXACT_MS;
        if (value.missed > 1 || !isExact) {
            slept.cause = Cause::NOT_RUN;
            slept.orElse = Cause::WAKE_LOST;
        } else if (timeOut.times < 2 && !isDefault) {
            slept.orElse = Cause::NOT_RUN;
        }
    }

    Reason frameGone(const Read& read, const Reason& reason) const {
        const std::vector<Index> erases = mRecent.erasesBetween(read.key, read.begin, read.end);
        return with(reason, Cause::FRAME_GONE, erases.empty() ? NEVER : erases.back());
    }

    /// The value existed, but it or its frame was removed.
    std::optional<Reason> lost(const Read& read, const Value& value, const Reason& reason) const {
        const bool metadataGone = read.key.tag == METADATA_TAG && read.answer == Answer::FRAME_0 && read.found != 0;
        if (metadataGone || (read.failed && read.failure == Failure::NO_BUFFER)) return frameGone(read, reason);
        if (read.erased) {
            // It may have been set and erased before the log began.
            const bool isSetLater = value.setAfter(read.end) != NEVER;
            const KeyFacts* facts = mRecent.find(read.key);
            const bool isKnown =
                facts != nullptr && !facts->values.empty() && facts->values.begin()->first < read.frame;
            if (isSetLater || isKnown) return std::nullopt;
            Reason erased = gone(read, NEVER, reason);
            erased.orElse = Cause::NEVER_DELIVERED;
            return erased;
        }
        return read.waited && !read.timedOut ? erasedMeanwhile(read, reason) : std::nullopt;
    }

    Reason gone(const Read& read, Index erase, const Reason& reason) const {
        const Event* event = mRecent.at(erase);
        const bool isTrimmed = event != nullptr && event->type == EventType::TRIM;
        Reason result = with(reason, isTrimmed ? Cause::TRIMMED : Cause::ERASED, erase);
        if (read.key.tag == METADATA_TAG) return result;  // its retain number cannot be chosen
        result.retain = read.needed;
        if (result.retain == UNKNOWN && event != nullptr && event->other != THE_LAST && event->other >= read.frame) {
            result.retain = int64_t{event->other} - read.frame + 1;
        }
        return result;
    }

    /// A wait that ends before its time-out was ended by a delivery or an erase.
    std::optional<Reason> erasedMeanwhile(const Read& read, const Reason& reason) const {
        const std::vector<Index> erases = mRecent.erasesBetween(read.key, read.begin, read.end);
        const int64_t retain = std::max<int64_t>(retainOf(read.key.tag, mTags), 0);
        for (auto erase = erases.rbegin(); erase != erases.rend(); ++erase) {
            const Event* event = mRecent.at(*erase);
            const bool isAll = event != nullptr && event->frame == THE_LAST;
            if (event == nullptr || (!isAll && event->frame < read.frame + retain)) continue;
            Reason erased = with(reason, Cause::ERASED, *erase);
            if (!isAll) erased.retain = int64_t{event->frame} - read.frame + 1;
            return erased;
        }
        return std::nullopt;
    }

    Reason late(const Read& read, Index set, const Reason& reason) const {
        Reason result = with(reason, Cause::LATE, set);
        const Event* end = mRecent.at(read.end);
        if (end != nullptr && result.timeUs != UNKNOWN)
            result.lateUs = std::max<int64_t>(0, result.timeUs - end->timeUs);
        return result;
    }

    Reason never(const Read& read, const Reason& reason) const {
        const KeyFacts* facts = mRecent.find(read.key);
        const Index ended = mRecent.storeEnded();
        if (read.begin < ended && ended != NEVER && (ended < read.end || !wentOn(read))) {
            return with(reason, Cause::STORE_ENDED, ended);
        }
        Reason result = with(reason, Cause::NEVER_DELIVERED, NEVER);
        if (facts != nullptr) result.thread = facts->thread;
        if (!wentOn(read)) result.orElse = Cause::LATE;
        return result;
    }

    /// Whether a later frame's value came after the read. If so, the read's own value would have come by then.
    bool wentOn(const Read& read) const {
        const KeyFacts* facts = mRecent.find(read.key);
        if (facts == nullptr) return false;
        for (auto value = facts->values.upper_bound(read.frame); value != facts->values.end(); ++value) {
            if (value->second.setAfter(read.end) != NEVER) return true;
        }
        return false;
    }

    /// Finds what the producer did while the value was due. If it waited, returns true and sets mNext to that read.
    bool followDelay(const Read& read, Reason& reason) {
        const Value value = mRecent.valueOf(read.key, read.frame);
        Index set = value.setAfter(read.end);
        if (set == NEVER) set = value.firstSet();
        const Event* begin = mRecent.at(read.begin);
        if (begin == nullptr || set == NEVER) return false;
        const std::vector<Stretch> stretches = mRecent.stretchesBefore(set, begin->timeUs);
        if (stretches.empty()) return false;
        const Stretch& longest = mostUnusual(stretches);
        if (!longest.isWait) {
            reason.busyUs = longest.us;
            if (const Event* before = mRecent.at(longest.begin)) reason.busyFrame = before->frame;
            return false;
        }
        reason.waitUs = longest.us;
        mNext = readOf(longest);
        return true;
    }

    static const Stretch& mostUnusual(const std::vector<Stretch>& stretches) {
        const auto excess = [](const Stretch& a, const Stretch& b) { return a.us - a.usualUs < b.us - b.usualUs; };
        const auto length = [](const Stretch& a, const Stretch& b) { return a.us < b.us; };
        const auto unusual = std::max_element(stretches.begin(), stretches.end(), excess);
        if (unusual->us - unusual->usualUs >= UNUSUAL_US) return *unusual;
        return *std::max_element(stretches.begin(), stretches.end(), length);
    }

    Read readOf(const Stretch& wait) const {
        const Event& waited = *mRecent.at(wait.end);
        Read read;
        read.key = waited.key;
        read.frame = waited.frame;
        read.begin = wait.begin;
        read.end = wait.end;
        read.waited = true;
        read.timedOut = waited.timedOut;
        read.waitMs = waited.count;
        read.answer = waited.answer;
        read.found = waited.other;
        read.failure = waited.failure;
        read.failed = waited.failure != Failure::OTHER;
        const Event* begin = mRecent.at(wait.begin);
        if (begin != nullptr && begin->type == EventType::LATE) {
            read.erased = true;
            read.needed = begin->count;
        }
        return read;
    }

    const Recent& mRecent;
    const Tags& mTags;
    Read mNext;
};

}  // namespace

std::vector<Reason> reasonsOf(const Read& read, const Recent& recent, const Tags& tags) {
    return Explainer(recent, tags).explain(read);
}

}  // namespace pslog
