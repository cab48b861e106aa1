// The times of a log's lines.

#ifndef PSLOG_LOG_TIME_H
#define PSLOG_LOG_TIME_H

#include <cstdint>
#include <optional>
#include <string>

#include "cursor.h"

namespace pslog {

/// The format of a line's time, and what it is counted from.
enum class Clock {
    NONE,       ///< the format has no times
    DATE,       ///< a date without a year, taken as 1972 (1973 after a New Year)
    YEAR_DATE,  ///< a date with a year
    EPOCH,      ///< seconds since 1970, UTC
    MONOTONIC   ///< seconds since the start of the machine
};

/// Parses the times of a log's lines, in their order.
class TimeParser {
public:
    /// Parses "MM-DD HH:MM:SS.mmm" or "SECONDS.mmm", optionally with a year or a zone, and the blanks after it.
    /// Returns false if there is no such time.
    bool take(Cursor& cursor, int64_t& timeUs, Clock& clock);

private:
    bool takeDate(Cursor& cursor, uint64_t first, int64_t& timeUs, Clock& clock);
    void takeZone(Cursor& cursor, int64_t& timeUs);
    void keepYear(int64_t& timeUs);

    uint64_t mYear = 0, mMonth = 0, mDay = 0;  ///< date of the last line
    int64_t mDaysUs = 0;                       ///< from 1970 to this date
    int64_t mLastUs = -1;
    int64_t mNewYearUs = 0;  ///< added since the log went through a New Year
    std::optional<int64_t> mFirstZone;
};

/// A time as it stands in the log: "11-21 10:00:00.123", "1763719200.123".
std::string clockText(int64_t timeUs, Clock clock);

}  // namespace pslog

#endif  // PSLOG_LOG_TIME_H
