// The times of a log's lines.

#ifndef PSLOG_LOG_TIME_H
#define PSLOG_LOG_TIME_H

#include <cstdint>
#include <optional>
#include <string>

#include "cursor.h"

namespace pslog {

/// What a line's time is counted from.
enum class Clock {
    NONE,       ///< the format has no times
    DATE,       ///< the log's own time zone; of a log without years, 1972 (and 1973 after a New Year)
    YEAR_DATE,  ///< the same, and the year is the log's
    EPOCH,      ///< 1970, UTC
    MONOTONIC   ///< the start of the machine
};

/// Reads the times of a log one after another.
class TimeParser {
public:
    /// Takes "MM-DD HH:MM:SS.mmm" or "SECONDS.mmm", perhaps with a year or a zone, and the blanks behind it.
    /// Returns false if there is no such time.
    bool take(Cursor& cursor, int64_t& timeUs, Clock& clock);

private:
    bool takeDate(Cursor& cursor, uint64_t first, int64_t& timeUs, Clock& clock);
    void takeZone(Cursor& cursor, int64_t& timeUs);
    void keepYear(int64_t& timeUs);

    uint64_t mYear = 0, mMonth = 0, mDay = 0;  ///< of the last line
    int64_t mDaysUs = 0;                       ///< from 1970 to this date
    int64_t mLastUs = -1;
    int64_t mNewYearUs = 0;  ///< what a New Year has added
    std::optional<int64_t> mFirstZone;
};

/// A line's time as the log has it: "11-21 10:00:00.123", "1763719200.123".
std::string clockText(int64_t timeUs, Clock clock);

}  // namespace pslog

#endif  // PSLOG_LOG_TIME_H
