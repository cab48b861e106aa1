// What flickers and their reasons are called in what is printed.

#ifndef PSLOG_FLICKER_TEXT_H
#define PSLOG_FLICKER_TEXT_H

#include <string>

#include "flicker.h"
#include "flicker_finder.h"

namespace pslog {

/// How to get a log that tells more.
constexpr const char* MORE_LEVELS = "PARAMSET_LOG=5, on a device setprop log.tag.ParamSet VERBOSE";

/// As "wake-up lost".
const char* nameOf(Cause cause);

class FlickerText {
public:
    FlickerText(const FlickerFinder& finder, const Interpreter& log) : mFinder(finder), mLog(log) {}

    /// As "11-22 08:21:32.807"; the line's number if the log has no times.
    std::string whenOf(int64_t timeUs, uint64_t line) const;
    /// As "gain" or "tag 4099".
    std::string tagOf(const Key& key) const;
    /// As "thread 812 (statistics)", by what it sets most; empty if the log does not say.
    std::string threadOf(uint32_t thread) const;
    /// As "used 370, 1 back", "its own after 50 ms".
    std::string answerOf(const Flicker& flicker) const;
    /// The root, with whose doing it was: as "statistics of 370 late: thread 812 (statistics) took 200 ms".
    std::string causeOf(const Flicker& flicker) const;
    /// The chain: as "gain of 370 used for 371: gain came 50 ms late, because ...".
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
