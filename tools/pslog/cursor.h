// Parses a text from the front.

#ifndef PSLOG_CURSOR_H
#define PSLOG_CURSOR_H

#include <charconv>
#include <string_view>

namespace pslog {

inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

inline bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Each step returns whether the text matched.
struct Cursor {
    std::string_view rest;

    char at(size_t i) const { return i < rest.size() ? rest[i] : '\0'; }

    bool literal(char expected) {
        if (at(0) != expected || rest.empty()) return false;
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
        while (at(0) == ' ') rest.remove_prefix(1);
    }

    /// Letters, digits and underscores: a user name or id.
    bool word() {
        size_t size = 0;
        while (isDigit(at(size)) || isLetter(at(size)) || at(size) == '_') ++size;
        rest.remove_prefix(size);
        return size > 0;
    }
};

}  // namespace pslog

#endif  // PSLOG_CURSOR_H
