// See flicker_text.h.

#include "flicker_text.h"

#include <cstdio>

#include "log_time.h"
#include "names.h"

namespace pslog {

namespace {

std::string milliseconds(int64_t us) {
    char text[32];
    std::snprintf(text, sizeof text, us < 10000 ? "%.1f ms" : "%.0f ms", static_cast<double>(us) / 1e3);
    return text;
}

std::string frames(int64_t off) {
    return std::to_string(off < 0 ? -off : off) + (off < 0 ? " ahead" : " back");
}

std::string whose(Cause cause, const std::string& thread) {
    switch (cause) {
        case Cause::WAKE_LOST: return ": " + thread + " slept through it";
        case Cause::NOT_RUN: return ": " + thread;
        case Cause::NOT_REGISTERED: return "";
        case Cause::NEVER_DELIVERED: return "; it usually comes from " + thread;
        default: return ", by " + thread;
    }
}

}  // namespace

const char* nameOf(Cause cause) {
    switch (cause) {
        case Cause::LATE: return "late";
        case Cause::NEVER_DELIVERED: return "never delivered";
        case Cause::PLAIN_SET: return "plain set";
        case Cause::WAKE_LOST: return "wake-up lost";
        case Cause::NOT_RUN: return "reader not run";
        case Cause::ERASED: return "erased too early";
        case Cause::TRIMMED: return "trimmed too early";
        case Cause::NOT_REGISTERED: return "never registered";
        case Cause::FRAME_GONE: return "frame gone";
        case Cause::STORE_ENDED: return "store ended";
        case Cause::NOT_KNOWN: break;
    }
    return "not known";
}

std::string FlickerText::whenOf(int64_t timeUs, uint64_t line) const {
    return mLog.hasTimes() ? clockText(timeUs, mLog.clock()) : "line " + std::to_string(line);
}

std::string FlickerText::tagOf(const Key& key) const {
    if (key.tag == UNKNOWN) return "?";
    const std::string name = key.tag == METADATA_TAG ? "metadata" : nameOf(key.tag, mLog.tags());
    return name == "-" ? "tag " + std::to_string(key.tag) : name;
}

std::string FlickerText::threadOf(uint32_t thread) const {
    const Key* sets = mFinder.mostSetBy(thread);
    if (!mLog.hasThreads()) return sets != nullptr ? "the thread that delivers " + tagOf(*sets) : "";
    if (thread == 0) return {};
    return "thread " + std::to_string(thread) + (sets != nullptr ? " (" + tagOf(*sets) + ")" : "");
}

std::string FlickerText::answerOf(const Flicker& flicker) const {
    const std::string waited = flicker.timeOuts == 0       ? ""
                               : flicker.waitMs == UNKNOWN ? ", timed out"
                                                           : ", after " + std::to_string(flicker.waitMs) + " ms";
    if (flicker.failed) return "nothing" + waited;
    if (flicker.answer == Answer::NOT_KNOWN) return "?" + waited;
    if (flicker.answer == Answer::ITSELF) return "its own" + waited;
    const std::optional<int64_t> off = flicker.framesOff();
    const std::string which = flicker.answer == Answer::FRAME_0 ? "frame 0" : std::to_string(flicker.answeredBy);
    if (!off) return which + waited;
    if (*off == 0) return "its own, from frame 0" + waited;
    const std::string copy = flicker.answer == Answer::FRAME_0 ? " (" + std::to_string(flicker.answeredBy) + ")" : "";
    return which + copy + ", " + frames(*off) + waited;
}

std::string FlickerText::valueOf(const Reason& reason) const {
    return tagOf(reason.key) + " of " + std::to_string(reason.frame);
}

/// One link of the chain, without its thread and advice.
std::string FlickerText::linkOf(const Reason& reason) const {
    const std::string value = valueOf(reason);
    switch (reason.cause) {
        case Cause::LATE:
            if (reason.lateUs == UNKNOWN || reason.lateUs == 0 || !mLog.hasTimes()) return value + " came late";
            return value + " came " + milliseconds(reason.lateUs) + " late";
        case Cause::NEVER_DELIVERED: return value + " was never delivered";
        case Cause::PLAIN_SET: return value + " was stored by a plain set, which wakes nobody";
        case Cause::WAKE_LOST: return "the wake-up for " + value + " was lost";
        case Cause::NOT_RUN: return value + " came in time, but its reader was not run";
        case Cause::ERASED: return value + " was erased before it was read";
        case Cause::TRIMMED: return value + " made room for a newer value before it was read";
        case Cause::NOT_REGISTERED: return tagOf(reason.key) + " was never registered";
        case Cause::FRAME_GONE:
            if (reason.key.tag == METADATA_TAG) return value + " was gone: its frame was removed with its last value";
            return value + " was gone: another tag's erase removed the frame";
        case Cause::STORE_ENDED: return "the store was destroyed before " + value + " came";
        case Cause::NOT_KNOWN: break;
    }
    return "why " + value + " was not there, the log does not say";
}

std::string FlickerText::endOf(const Reason& reason) const {
    std::string text;
    const std::string thread = threadOf(reason.thread);
    if (reason.cause == Cause::LATE && reason.busyUs != UNKNOWN && mLog.hasTimes()) {
        text =
            ", because " + (thread.empty() ? "its producer" : thread) + " was busy for " + milliseconds(reason.busyUs);
        if (reason.busyFrame != 0) text += " with frame " + std::to_string(reason.busyFrame);
    } else if (!thread.empty()) {
        text = whose(reason.cause, thread);
    }
    if (reason.retain != UNKNOWN)
        text += "; a retain number of " + std::to_string(reason.retain) + " would have been enough";
    if (reason.orElse != Cause::NOT_KNOWN) text += std::string(" (or else: ") + nameOf(reason.orElse) + ")";
    return text;
}

std::string FlickerText::causeOf(const Flicker& flicker) const {
    const Reason& root = flicker.root();
    return linkOf(root) + endOf(root);
}

std::string FlickerText::storyOf(const Flicker& flicker) const {
    const std::string asked = std::to_string(flicker.frame);
    std::string text = tagOf(flicker.key);
    if (flicker.failed) {
        text += " of " + asked + " not got";
    } else if (flicker.answer == Answer::ITSELF || flicker.answer == Answer::NOT_KNOWN) {
        text += " of " + asked + " waited for until the time-out";
    } else {
        const bool isFrame0 = flicker.answer == Answer::FRAME_0;
        text += isFrame0 ? " of frame 0" : " of " + std::to_string(flicker.answeredBy);
        if (isFrame0 && flicker.answeredBy != 0) text += ", a copy of " + std::to_string(flicker.answeredBy) + "'s,";
        text += " used for " + asked;
    }
    for (const Reason& reason : flicker.chain) {
        text += &reason == &flicker.chain.front() ? ": " : ", because ";
        text += linkOf(reason);
    }
    return text + endOf(flicker.root());
}

std::string FlickerText::adviceFor(const Flicker& flicker) const {
    const Reason& root = flicker.root();
    const std::string tag = tagOf(root.key);
    switch (root.cause) {
        case Cause::LATE: return "deliver " + tag + " sooner, or let its reader wait longer";
        case Cause::NEVER_DELIVERED: return "deliver " + tag + " for every frame, even for one that is given up";
        case Cause::PLAIN_SET: return "set " + tag + " with setPsParamSyn, which wakes the waiting gets";
        case Cause::WAKE_LOST:
            return "nothing in the modules: the value came in time; two short waits instead of a long one limit the "
                   "delay";
        case Cause::NOT_RUN: return "give the reader's thread a higher priority, or reduce the load of the machine";
        case Cause::ERASED:
            if (root.retain != UNKNOWN) {
                return "register " + tag + " with a retain number of " + std::to_string(root.retain) +
                       ", read it sooner, or erase later";
            }
            return "read " + tag + " sooner, or erase later";
        case Cause::TRIMMED:
            return "register " + tag + " with a retain number of " +
                   (root.retain != UNKNOWN ? std::to_string(root.retain) : std::string("more")) + ", or read it sooner";
        case Cause::NOT_REGISTERED: return "register " + tag + " before its first use";
        case Cause::FRAME_GONE:
            if (root.key.tag == METADATA_TAG) {
                return "read metadata sooner, or keep a value of its frame longer: give a tag of pipe 0 a greater "
                       "retain number";
            }
            return "erase later, or give the pipe's other tags at least the retain number of " + tag;
        case Cause::STORE_ENDED: return "stop the modules before the store is destroyed";
        case Cause::NOT_KNOWN: break;
    }
    return std::string("a log of level 5 tells why: ") + MORE_LEVELS;
}

}  // namespace pslog
