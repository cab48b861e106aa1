// One line of a log: the frame that the host's facility or the platform's logger puts around a message of the store.

#ifndef PSLOG_LINE_H
#define PSLOG_LINE_H

#include <cstdint>
#include <string_view>

namespace pslog {

struct Line {
    int level = 0;         ///< 1 to 5
    int64_t timeUs = -1;   ///< since the year began; -1 if the format has no times
    uint32_t process = 0;  ///< 0 if the format does not say
    uint32_t thread = 0;   ///< 0 if the format does not say
    std::string_view function;
    std::string_view text;  ///< after source line and function
};

enum class LineKind {
    STORE,   ///< a line of the store
    BROKEN,  ///< of the store, but cut or damaged
    OTHER    ///< anybody else's
};

/// Reads a line, which has no line end any more. The result refers to its bytes.
LineKind parseLine(std::string_view raw, Line& line);

}  // namespace pslog

#endif  // PSLOG_LINE_H
