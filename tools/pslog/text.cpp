// See text.h.

#include "text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace pslog {

namespace {

/// The number of bytes of the character that the text begins with, 0 if it does not begin with a valid one. Overlong
/// encodings and halves of surrogate pairs are not valid.
size_t characterAt(std::string_view text, uint32_t& character) {
    const auto first = static_cast<uint8_t>(text[0]);
    if (first < 0x80) {
        character = first;
        return 1;
    }
    const size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    character = first & (0x7FU >> size);
    for (size_t i = 1; i < size; ++i) {
        const auto next = static_cast<uint8_t>(text[i]);
        if (next >> 6 != 2) return 0;
        character = character << 6 | (next & 0x3FU);
    }
    const bool tooLong = (size == 3 && character < 0x800) || (size == 4 && character < 0x10000);
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    return tooLong || surrogate || character > 0x10FFFF ? 0 : size;
}

/// Control characters of both ranges (a terminal obeys them), characters that change the direction of the text or break
/// lines, and code points that are no characters.
bool isHarmful(uint32_t c) {
    const auto in = [c](uint32_t least, uint32_t most) { return c >= least && c <= most; };
    return c < 0x20 || in(0x7F, 0x9F) || in(0x2028, 0x202E) || in(0x2066, 0x2069) || c == 0x200E || c == 0x200F ||
           c == 0x61C || c == 0xFEFF || (c & 0xFFFE) == 0xFFFE;
}

size_t safeSize(std::string_view text) {
    uint32_t character = 0;
    const size_t size = characterAt(text, character);
    return size != 0 && isHarmful(character) ? 0 : size;
}

}  // namespace

bool isSafe(std::string_view text) {
    while (!text.empty()) {
        const size_t size = safeSize(text);
        if (size == 0) return false;
        text.remove_prefix(size);
    }
    return true;
}

std::string safeText(std::string_view text) {
    std::string safe;
    while (!text.empty()) {
        uint32_t character = 0;
        const size_t size = std::max<size_t>(characterAt(text, character), 1);
        if (safeSize(text) != 0) {
            safe += text.substr(0, size);
        } else {
            for (const char byte : text.substr(0, size)) {
                char code[8];
                std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(static_cast<uint8_t>(byte)));
                safe += code;
            }
        }
        text.remove_prefix(size);
    }
    return safe;
}

size_t lengthOf(std::string_view text) {
    const auto isFirst = [](char byte) { return static_cast<uint8_t>(byte) >> 6 != 2; };
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), isFirst));
}

std::string padded(std::string text, size_t width) {
    const size_t length = lengthOf(text);
    if (length < width) text.append(width - length, ' ');
    return text;
}

}  // namespace pslog
