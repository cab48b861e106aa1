// Texts of a log may hold any bytes. The reader makes them safe for whatever is printed: behind it, all texts are UTF-8
// without control characters.

#ifndef PSLOG_TEXT_H
#define PSLOG_TEXT_H

#include <string>
#include <string_view>

namespace pslog {

/// Whether it is UTF-8, and has nothing that a terminal obeys or that XML forbids.
bool isSafe(std::string_view text);

/// The same text, with each byte of what is not safe as \xNN.
std::string safeText(std::string_view text);

/// The text with blanks behind it, up to so many characters.
std::string padded(std::string text, size_t width);

}  // namespace pslog

#endif  // PSLOG_TEXT_H
