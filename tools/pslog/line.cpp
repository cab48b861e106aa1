// See line.h. The formats, where L is the level's letter:
//     host         L ParamSet: message
//     brief        L/ParamSet( PID): message
//     tag          L/ParamSet: message
//     process      L( PID) message  (ParamSet)
//     thread       L( PID: TID) message
//     time         MM-DD HH:MM:SS.mmm L/ParamSet( PID): message
//     threadtime   MM-DD HH:MM:SS.mmm  PID  TID L ParamSet: message
//     long         [ MM-DD HH:MM:SS.mmm  PID: TID L/ParamSet ], the message and a blank line
// Modifiers add "UID:" before PID (in threadtime without the colon), "YYYY-" before the date, " +hhmm" after the time,
// more digits of the second, or colour escapes around the line; or replace date and time by seconds since 1970 or since
// the start. The host's lines may begin with time, process and thread.

#include "line.h"

#include <algorithm>

#include "cursor.h"

namespace pslog {

namespace {

constexpr std::string_view MODULE = "ParamSet";

int levelOf(char letter) {
    switch (letter) {
        case 'F':
        case 'E': return 1;
        case 'W': return 2;
        case 'I': return 3;
        case 'D': return 4;
        case 'V': return 5;
        default: return 0;
    }
}

bool takeLevel(Cursor& cursor, int& level) {
    level = levelOf(cursor.at(0));
    if (level != 0) cursor.rest.remove_prefix(1);
    return level != 0;
}

/// Removes colour escapes around the line or around its message.
std::string_view withoutColour(std::string_view raw) {
    constexpr std::string_view START = "\x1B[", END = "\x1B[0m";
    if (raw.substr(0, START.size()) == START) {
        const size_t end = raw.find('m');
        if (end != std::string_view::npos && end < 12) raw.remove_prefix(end + 1);
    }
    if (raw.size() >= END.size() && raw.substr(raw.size() - END.size()) == END) raw.remove_suffix(END.size());
    return raw;
}

/// Whether a line with a damaged prefix came from the store: the module's name is where a prefix has it, or before the
/// start of a message.
bool hasStoresRest(std::string_view raw) {
    for (size_t at = raw.find(MODULE); at != std::string_view::npos; at = raw.find(MODULE, at + 1)) {
        Cursor after{raw.substr(at + MODULE.size())};
        const bool ends = after.at(0) == '(' || after.at(0) == ' ' || after.at(0) == ':';
        const bool starts = at >= 2 && levelOf(raw[at - 2]) != 0 && (raw[at - 1] == ' ' || raw[at - 1] == '/');
        uint32_t number = 0;
        if (starts && ends) return true;
        if (after.literal(": ") && after.number(number) && after.literal(", ")) return true;
    }
    return false;
}

/// Parses the prefix of a message.
struct FrontReader {
    enum Result {
        NO_FRONT,  ///< not a line of any of the formats
        OTHERS,    ///< a line of another module
        OURS,
        HEADER  ///< a header of format `long`, of the store
    };

    TimeParser& times;
    Cursor cursor;
    Line& line;

    Result take() {
        const char first = cursor.at(0);
        if (first == '[') return takeHeader();
        if (isDigit(first) || first == ' ') {
            cursor.blanks();
            return takeTime() ? takeAfterTime() : NO_FRONT;
        }
        if (cursor.at(1) == '(') return takeProcess();
        return takeLettered();
    }

    bool takeTime() { return times.take(cursor, line.timeUs, line.clock); }

    Result takeAfterTime() {
        Cursor host = cursor;
        const bool isHost = takeLevel(host, line.level) && host.literal(' ') && host.literal(MODULE);
        return isHost || cursor.at(1) == '/' ? takeLettered() : takeThreads();
    }

    /// "UID  PID  TID L ParamSet: ", the UID is optional
    Result takeThreads() {
        const Cursor start = cursor;
        if (!takeTwoNumbers()) {
            cursor = start;
            if (!cursor.word()) return NO_FRONT;
            cursor.blanks();
            if (!takeTwoNumbers()) return NO_FRONT;
        }
        cursor.blanks();
        if (!cursor.literal(MODULE)) return OTHERS;
        cursor.blanks();
        return cursor.literal(": ") ? OURS : NO_FRONT;
    }

    /// "PID  TID L"
    bool takeTwoNumbers() {
        if (!cursor.number(line.process)) return false;
        cursor.blanks();
        if (!cursor.number(line.thread)) return false;
        cursor.blanks();
        return takeLevel(cursor, line.level) && cursor.at(0) == ' ';
    }

    /// "L ParamSet: ", "L/ParamSet: " or "L/ParamSet(UID: PID): "
    Result takeLettered() {
        if (!takeLevel(cursor, line.level)) return NO_FRONT;
        if (cursor.literal(' ')) return cursor.literal(MODULE) && cursor.literal(": ") ? OURS : NO_FRONT;
        if (!cursor.literal('/')) return NO_FRONT;
        if (!cursor.literal(MODULE)) return OTHERS;
        cursor.blanks();
        if (cursor.literal(": ")) return OURS;
        return takeBracket(1) && cursor.literal(": ") ? OURS : NO_FRONT;
    }

    /// "L( PID) message  (ParamSet)" or "L( PID: TID) message"
    Result takeProcess() {
        if (!takeLevel(cursor, line.level)) return NO_FRONT;
        const size_t end = cursor.rest.rfind("  (");
        const bool isOfProcess = end != std::string_view::npos && cursor.rest.back() == ')';
        Cursor module{isOfProcess ? cursor.rest.substr(end) : std::string_view()};
        cursor.rest.remove_suffix(module.rest.size());
        const bool numbered = isOfProcess ? takeBracket(1) : takeBracket(2) || takeBracket(1);
        if (!numbered || !cursor.literal(' ')) return NO_FRONT;
        line.isNamed = isOfProcess;
        if (!isOfProcess) return OURS;
        cursor.rest = withoutColour(cursor.rest);
        return module.rest == "  (ParamSet)" ? OURS : OTHERS;
    }

    /// "(UID: PID: TID)"
    bool takeBracket(int wanted) {
        const size_t close = cursor.rest.find(')');
        if (cursor.at(0) != '(' || close == std::string_view::npos) return false;
        if (!takeIds({cursor.rest.substr(1, close - 1)}, wanted)) return false;
        cursor.rest.remove_prefix(close + 1);
        return true;
    }

    /// "UID: PID: TID". The UID is optional; the TID is missing if only one number is wanted.
    bool takeIds(Cursor ids, int wanted) {
        const auto colons = std::count(ids.rest.begin(), ids.rest.end(), ':');
        ids.blanks();
        if (colons == wanted) {
            if (!ids.word() || !ids.literal(':')) return false;
            ids.blanks();
        } else if (colons != wanted - 1) {
            return false;
        }
        if (!ids.number(line.process)) return false;
        if (wanted == 2) {
            if (!ids.literal(':')) return false;
            ids.blanks();
            if (!ids.number(line.thread)) return false;
        }
        return ids.rest.empty();
    }

    /// "[ TIME UID: PID: TID L/ParamSet ]"
    Result takeHeader() {
        if (!cursor.literal("[ ")) return NO_FRONT;
        cursor.blanks();
        if (!takeTime()) return NO_FRONT;
        const size_t end = cursor.rest.find('/');
        if (end == std::string_view::npos || end < 2 || cursor.rest[end - 2] != ' ') return NO_FRONT;
        Cursor module{cursor.rest.substr(end - 1)};
        if (!takeIds({cursor.rest.substr(0, end - 2)}, 2)) return NO_FRONT;
        if (!takeLevel(module, line.level) || !module.literal('/')) return NO_FRONT;
        if (!module.literal(MODULE)) return OTHERS;
        module.blanks();
        return module.literal(']') ? HEADER : NO_FRONT;
    }
};

}  // namespace

LineKind LineParser::parse(std::string_view raw, Line& line) {
    if (!raw.empty() && raw.back() == '\r') raw.remove_suffix(1);
    raw = withoutColour(raw);
    const bool isFrame = raw.empty() && mBlankIsFrame;
    mBlankIsFrame = false;
    if (isFrame) return LineKind::FRAME;

    line = {};
    line.isNamed = true;
    FrontReader front{mTimes, {raw}, line};
    if (mHeader && !raw.empty() && isDigit(raw[0])) {
        line = *mHeader;
        mHeader.reset();
        mBlankIsFrame = true;
    } else {
        mHeader.reset();
        switch (front.take()) {
            case FrontReader::OTHERS: return LineKind::OTHER;
            case FrontReader::NO_FRONT: return hasStoresRest(raw) ? LineKind::BROKEN : LineKind::OTHER;
            case FrontReader::HEADER: mHeader = line; return LineKind::FRAME;
            case FrontReader::OURS: break;
        }
    }
    uint32_t sourceLine = 0;
    const LineKind notWhole = line.isNamed ? LineKind::BROKEN : LineKind::OTHER;
    if (!front.cursor.number(sourceLine) || !front.cursor.literal(", ")) return notWhole;
    const size_t end = front.cursor.rest.find(": ");
    if (end == std::string_view::npos) return notWhole;
    line.function = front.cursor.rest.substr(0, end);
    line.text = front.cursor.rest.substr(end + 2);
    return LineKind::STORE;
}

}  // namespace pslog
