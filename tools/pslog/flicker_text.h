// Texts for flickers and their reasons, as they are printed.

#ifndef PSLOG_FLICKER_TEXT_H
#define PSLOG_FLICKER_TEXT_H

#include <string>

#include "flicker.h"
#include "flicker_finder.h"

namespace pslog {

/// For example "wake-up lost".
const char* nameOf(Cause cause);

class FlickerText {
public:
    FlickerText(const FlickerFinder& finder, const Interpreter& log) : mFinder(finder), mLog(log) {}

    /// For example "11-22 08:21:32.807"; the line number if the log has no times.
    std::string whenOf(int64_t timeUs, uint64_t line) const;
    /// For example "gain" or "tag 4099".
    std::string tagOf(const Key& key) const;
    /// For example "thread 812 (statistics)", with the tag that the thread sets most; empty if the log does not say.
    std::string threadOf(uint32_t thread) const;
    /// For example "370, 1 back" or "its own, after 50 ms".
    std::string answerOf(const Flicker& flicker) const;
    /// The root cause and its thread: "statistics of 370 came 50 ms late, because thread 812 (statistics) was busy
    /// ...".
    std::string causeOf(const Flicker& flicker) const;
    /// The chain: "gain of 370 used for 371: gain of 371 came 50 ms late, because ...".
    std::string storyOf(const Flicker& flicker) const;
    /// What to change.
    std::string adviceFor(const Flicker& flicker) const;

private:
    std::string valueOf(const Reason& reason) const;
    std::string linkOf(const Reason& reason) const;
    std::string endOf(const Reason& reason) const;

    const FlickerFinder& mFinder;
    const Interpreter& mLog;
};

}  // namespace pslog

#endif  // PSLOG_FLICKER_TEXT_H
