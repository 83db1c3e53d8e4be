// Small helpers for text that people and files hand in: words, numbers, hexadecimal, whole files. Every
// reader here is strict and answers false for what it does not understand; the caller knows what to say about
// it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The words of a line, separated by blanks; a `#` starts a comment.
std::vector<std::string> splitWords(std::string_view line);
std::string_view trimmed(std::string_view text);

// Decimal or 0x-prefixed, nothing before or after, at most 32 bits.
bool parseNumber(std::string_view text, uint32_t& value);
bool parseHex(std::string_view text, std::vector<uint8_t>& bytes);
std::string hexText(const void* data, size_t length);
// Control characters as \xNN, so that foreign text stays on one line and cannot steer a terminal.
std::string printable(std::string_view text);

void appendFormat(std::string& text, const char* format, ...) __attribute__((format(printf, 2, 3)));

// False with errno set when the file cannot be read, or is larger than a description can be.
bool readTextFile(const std::string& path, std::string& text);

// Calls line(number, text) for each line, counted from 1, without its line end.
template <typename Line>
void forEachLine(std::string_view text, Line&& line) {
    for (uint32_t number = 1; !text.empty(); number++) {
        const size_t end = text.find('\n');
        std::string_view one = text.substr(0, end);
        if (!one.empty() && one.back() == '\r') one.remove_suffix(1);
        line(number, one);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}
