// See line.h. The formats:
//     host         L ParamSet: message
//     brief        L/ParamSet( PID): message
//     time         MM-DD HH:MM:SS.mmm L/ParamSet( PID): message
//     threadtime   MM-DD HH:MM:SS.mmm  PID  TID L ParamSet: message
// A year before the date is read, too, a time of more or fewer digits, and the host's lines with a time before them.

#include "line.h"

#include <charconv>

namespace pslog {

namespace {

constexpr std::string_view MODULE = "ParamSet";

/// Takes a text apart from the front. Every step says whether it could be made.
struct Cursor {
    std::string_view rest;

    bool literal(char expected) {
        if (rest.empty() || rest.front() != expected) return false;
        rest.remove_prefix(1);
        return true;
    }

    bool literal(std::string_view expected) {
        if (rest.substr(0, expected.size()) != expected) return false;
        rest.remove_prefix(expected.size());
        return true;
    }

    template <typename Number>
    bool number(Number& value) {
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
        if (error != std::errc()) return false;
        rest.remove_prefix(static_cast<size_t>(end - rest.data()));
        return true;
    }

    void blanks() {
        while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
    }
};

bool takeLevel(Cursor& cursor, int& level) {
    if (cursor.rest.empty()) return false;
    switch (cursor.rest.front()) {
        case 'F':
        case 'E': level = 1; break;
        case 'W': level = 2; break;
        case 'I': level = 3; break;
        case 'D': level = 4; break;
        case 'V': level = 5; break;
        default: return false;
    }
    cursor.rest.remove_prefix(1);
    return true;
}

/// Digits after the point, as microseconds.
bool takeFraction(Cursor& cursor, uint64_t& us) {
    const size_t before = cursor.rest.size();
    if (!cursor.number(us)) return false;
    size_t digits = before - cursor.rest.size();
    for (; digits < 6; ++digits) us *= 10;
    for (; digits > 6; --digits) us /= 10;
    return true;
}

/// "MM-DD HH:MM:SS.mmm", perhaps with "YYYY-" before it.
bool takeTime(Cursor& cursor, int64_t& timeUs) {
    static constexpr uint64_t DAYS_BEFORE[] = {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335};
    uint64_t month = 0, day = 0, hour = 0, minute = 0, second = 0, us = 0;
    if (!cursor.number(month) || !cursor.literal('-')) return false;
    if (month > 12 && (!cursor.number(month) || !cursor.literal('-'))) return false;
    if (!cursor.number(day) || !cursor.literal(' ') || month < 1 || month > 12) return false;
    cursor.blanks();
    if (!cursor.number(hour) || !cursor.literal(':') || !cursor.number(minute) || !cursor.literal(':')) return false;
    if (!cursor.number(second) || !cursor.literal('.') || !takeFraction(cursor, us)) return false;
    if (day > 31 || hour > 23 || minute > 59 || second > 60) return false;
    const uint64_t seconds = (((DAYS_BEFORE[month - 1] + day) * 24 + hour) * 60 + minute) * 60 + second;
    timeUs = static_cast<int64_t>(seconds * 1000000 + us);
    return true;
}

/// "L ParamSet: "
bool takeHost(Cursor& cursor, Line& line) {
    return takeLevel(cursor, line.level) && cursor.literal(' ') && cursor.literal(MODULE) && cursor.literal(": ");
}

/// "L/ParamSet( PID): "
bool takeBrief(Cursor& cursor, Line& line) {
    if (!takeLevel(cursor, line.level) || !cursor.literal('/') || !cursor.literal(MODULE)) return false;
    cursor.blanks();
    if (!cursor.literal('(')) return false;
    cursor.blanks();
    return cursor.number(line.process) && cursor.literal("): ");
}

/// " PID  TID L ParamSet: "
bool takeThreads(Cursor& cursor, Line& line) {
    if (!cursor.number(line.process)) return false;
    cursor.blanks();
    if (!cursor.number(line.thread)) return false;
    cursor.blanks();
    if (!takeLevel(cursor, line.level)) return false;
    cursor.blanks();
    if (!cursor.literal(MODULE)) return false;
    cursor.blanks();
    return cursor.literal(": ");
}

bool takeFrame(Cursor& cursor, Line& line) {
    if (cursor.rest.size() < 4) return false;
    if (cursor.rest[0] >= '0' && cursor.rest[0] <= '9') {
        if (!takeTime(cursor, line.timeUs)) return false;
        cursor.blanks();
        if (!cursor.rest.empty() && cursor.rest[0] >= '0' && cursor.rest[0] <= '9') return takeThreads(cursor, line);
    }
    const bool brief = cursor.rest.size() > 1 && cursor.rest[1] == '/';
    return brief ? takeBrief(cursor, line) : takeHost(cursor, line);
}

}  // namespace

LineKind parseLine(std::string_view raw, Line& line) {
    line = {};
    Cursor cursor{raw};
    if (!raw.empty() && raw.back() == '\r') cursor.rest.remove_suffix(1);
    // A line that names the module, but has nothing whole around it, was one of the store's once.
    if (!takeFrame(cursor, line)) {
        return raw.find("ParamSet: ") == std::string_view::npos ? LineKind::OTHER : LineKind::BROKEN;
    }
    uint32_t sourceLine = 0;
    if (!cursor.number(sourceLine) || !cursor.literal(", ")) return LineKind::BROKEN;
    const size_t end = cursor.rest.find(": ");
    if (end == std::string_view::npos) return LineKind::BROKEN;
    line.function = cursor.rest.substr(0, end);
    line.text = cursor.rest.substr(end + 2);
    return LineKind::STORE;
}

}  // namespace pslog
