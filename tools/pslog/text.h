// Texts of a log may contain any bytes. The reader makes them safe to print: after it, all texts are UTF-8 without
// control characters.

#ifndef PSLOG_TEXT_H
#define PSLOG_TEXT_H

#include <string>
#include <string_view>

namespace pslog {

/// Whether the text is UTF-8 without control characters, and valid in XML.
bool isSafe(std::string_view text);

/// The text with \xNN in place of each unsafe byte.
std::string safeText(std::string_view text);

/// The number of characters of a safe text.
size_t lengthOf(std::string_view text);

/// The text, filled up with blanks to this number of characters.
std::string padded(std::string text, size_t width);

}  // namespace pslog

#endif  // PSLOG_TEXT_H
