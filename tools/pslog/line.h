// Parses one line of a log: a message of the store with the prefix (or suffix) of the host's or the platform's logger.

#ifndef PSLOG_LINE_H
#define PSLOG_LINE_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "log_time.h"

namespace pslog {

struct Line {
    int level = 0;        ///< 1 to 5
    int64_t timeUs = -1;  ///< since 1970, or since the start of the machine; -1 if the format has no times
    Clock clock = Clock::NONE;
    uint32_t process = 0;  ///< 0 if the format does not say
    uint32_t thread = 0;   ///< 0 if the format does not say
    bool isNamed = false;  ///< whether the line names the store's module; format `thread` does not
    std::string_view function;
    std::string_view text;  ///< the message, after source line and function
};

enum class LineKind {
    STORE,   ///< a message of the store; if it is not named, perhaps of another module
    FRAME,   ///< the lines of format `long` around a message of the store
    BROKEN,  ///< of the store, but cut or damaged
    OTHER    ///< a line of another program
};

/// Parses the lines of a log one after another. Each may have another format.
class LineParser {
public:
    /// @param raw   the line without its line end
    /// @param line  receives the result, which refers to the bytes of raw
    LineKind parse(std::string_view raw, Line& line);

private:
    std::optional<Line> mHeader;  ///< header of format `long`, if the next line is the message
    bool mBlankIsFrame = false;   ///< the line before was the message of format `long`
    TimeParser mTimes;
};

}  // namespace pslog

#endif  // PSLOG_LINE_H
