// See log_time.h.

#include "log_time.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>

namespace pslog {

namespace {

constexpr int64_t SECOND_US = 1000000;
constexpr int64_t DAY_US = 24 * 3600 * SECOND_US;
constexpr int64_t LEAP_YEAR_US = 366 * DAY_US;
constexpr uint64_t YEAR_OF_NO_YEAR = 1972;  // a leap year

/// The digits after the decimal point, as microseconds.
bool takeFraction(Cursor& cursor, uint64_t& us) {
    const size_t before = cursor.rest.size();
    if (!cursor.number(us)) return false;
    size_t digits = before - cursor.rest.size();
    for (; digits < 6; ++digits) us *= 10;
    for (; digits > 6; --digits) us /= 10;
    return true;
}

/// The days from 1970 to this date.
bool daysUsOf(uint64_t year, uint64_t month, uint64_t day, int64_t& us) {
    if (year < 1970 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31) return false;
    std::tm date{};
    date.tm_year = static_cast<int>(year) - 1900;
    date.tm_mon = static_cast<int>(month) - 1;
    date.tm_mday = static_cast<int>(day);
    us = timegm(&date) * SECOND_US;
    return true;
}

}  // namespace

bool TimeParser::take(Cursor& cursor, int64_t& timeUs, Clock& clock) {
    uint64_t first = 0, us = 0;
    if (!cursor.number(first)) return false;
    if (cursor.literal('.')) {
        if (!takeFraction(cursor, us) || first > INT32_MAX * uint64_t{8}) return false;
        timeUs = static_cast<int64_t>(first * SECOND_US + us);
        // Smaller numbers are seconds since the start of the machine. As seconds since 1970 they would be before 2001.
        clock = first < 1000000000 ? Clock::MONOTONIC : Clock::EPOCH;
    } else if (!takeDate(cursor, first, timeUs, clock)) {
        return false;
    }
    if (!cursor.literal(' ')) return false;
    cursor.blanks();
    return true;
}

bool TimeParser::takeDate(Cursor& cursor, uint64_t first, int64_t& timeUs, Clock& clock) {
    uint64_t year = YEAR_OF_NO_YEAR, month = first, day = 0, hour = 0, minute = 0, second = 0, us = 0;
    if (!cursor.literal('-') || !cursor.number(day)) return false;
    clock = first > 12 ? Clock::YEAR_DATE : Clock::DATE;
    if (first > 12) {
        year = first;
        month = day;
        if (!cursor.literal('-') || !cursor.number(day)) return false;
    }
    if (!cursor.literal(' ')) return false;
    cursor.blanks();
    if (!cursor.number(hour) || !cursor.literal(':') || !cursor.number(minute) || !cursor.literal(':')) return false;
    if (!cursor.number(second) || !cursor.literal('.') || !takeFraction(cursor, us)) return false;
    if (hour > 23 || minute > 59 || second > 60) return false;
    if (year != mYear || month != mMonth || day != mDay) {
        if (!daysUsOf(year, month, day, mDaysUs)) return false;
        mYear = year;
        mMonth = month;
        mDay = day;
    }
    timeUs = mDaysUs + static_cast<int64_t>(((hour * 60 + minute) * 60 + second) * SECOND_US + us);
    takeZone(cursor, timeUs);
    if (clock == Clock::DATE) keepYear(timeUs);
    return true;
}

/// If the zone's offset changes within a log, all times are converted to the first offset.
void TimeParser::takeZone(Cursor& cursor, int64_t& timeUs) {
    const char sign = cursor.at(1);
    if ((sign != '+' && sign != '-') || cursor.at(0) != ' ') return;
    Cursor zone{cursor.rest.substr(2)};
    int64_t offset = 0;
    if (!isDigit(zone.at(0)) || !zone.number(offset) || offset > 2400) return;
    cursor = zone;
    const int64_t minutes = (offset / 100 * 60 + offset % 100) * (sign == '-' ? -1 : 1);
    if (!mFirstZone) mFirstZone = minutes;
    timeUs += (*mFirstZone - minutes) * 60 * SECOND_US;
}

/// In a log without years, a date that jumps back is a New Year.
void TimeParser::keepYear(int64_t& timeUs) {
    const int64_t time = timeUs + mNewYearUs;
    if (mLastUs >= 0 && time < mLastUs - LEAP_YEAR_US / 2) mNewYearUs += LEAP_YEAR_US;
    if (mLastUs >= 0 && time > mLastUs + LEAP_YEAR_US / 2) mNewYearUs -= LEAP_YEAR_US;
    timeUs += mNewYearUs;
    mLastUs = timeUs;
}

std::string clockText(int64_t timeUs, Clock clock) {
    char text[64] = "";
    const auto us = static_cast<int>(timeUs % SECOND_US);
    const std::time_t seconds = timeUs / SECOND_US;
    if (clock == Clock::EPOCH || clock == Clock::MONOTONIC) {
        std::snprintf(text, sizeof text, "%" PRId64 ".%03d", timeUs / SECOND_US, us / 1000);
    } else if (clock != Clock::NONE) {
        std::tm date{};
        gmtime_r(&seconds, &date);
        const size_t size = clock == Clock::DATE ? std::strftime(text, sizeof text, "%m-%d %H:%M:%S", &date)
                                                 : std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &date);
        std::snprintf(text + size, sizeof text - size, ".%03d", us / 1000);
    }
    return text;
}

}  // namespace pslog
