// Words and lines of text that people, files and the daemon's sockets hand in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The words between blanks (spaces and tabs).
std::vector<std::string> splitWords(std::string_view text);
// Without blanks at either end.
std::string_view trimmed(std::string_view text);
// A line without the comment that `#` starts.
std::string_view withoutComment(std::string_view line);

// Bytes of the well-formed UTF-8 sequence at the front of `text`, which is not empty; 0 when there is none.
size_t utf8Length(std::string_view text);
// Control characters (C0 and C1) and bytes that are no UTF-8 as \xNN, so that foreign text stays on one line
// and cannot steer a terminal.
std::string safeText(std::string_view text);

// Calls line(number, text) for each line, counted from 1, without its line end.
template <typename Line>
void forEachLine(std::string_view text, Line&& line) {
    for (uint32_t number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        std::string_view one = text.substr(0, end);
        if (!one.empty() && one.back() == '\r') one.remove_suffix(1);
        line(number, one);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}
