// One line of a log: the frame that the host's facility or the platform's logger puts around a message of the store.

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
    std::string_view text;  ///< after source line and function
};

enum class LineKind {
    STORE,   ///< a message of the store, or of anybody if it is not named
    FRAME,   ///< the lines of format `long` around a message of the store
    BROKEN,  ///< of the store, but cut or damaged
    OTHER    ///< anybody else's
};

/// Reads the lines of a log one after another, each in whatever format it has.
class LineParser {
public:
    /// @param raw   has no line end any more
    /// @param line  refers to its bytes
    LineKind parse(std::string_view raw, Line& line);

private:
    std::optional<Line> mHeader;  ///< of format `long`, when the message is to be the next line
    bool mBlankIsFrame = false;   ///< the line before was the message
    TimeParser mTimes;
};

}  // namespace pslog

#endif  // PSLOG_LINE_H
