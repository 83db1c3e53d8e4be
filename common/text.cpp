#include "common/text.h"

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>

namespace {
constexpr size_t FILE_MAX = 4u << 20;  // bytes

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
}  // namespace

std::vector<std::string> splitWords(std::string_view line) {
    line = line.substr(0, line.find('#'));
    std::vector<std::string> words;
    for (size_t at = 0; at < line.size();) {
        size_t end = at;
        while (end < line.size() && !isBlank(line[end])) end++;
        if (end > at) words.emplace_back(line.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

bool parseNumber(std::string_view text, uint32_t& value) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    const char* end = text.data() + text.size();
    uint32_t parsed = 0;
    const auto result = std::from_chars(text.data(), end, parsed, base);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) return false;
    value = parsed;
    return true;
}

bool parseHex(std::string_view text, std::vector<uint8_t>& bytes) {
    if (text.size() % 2 != 0) return false;
    bytes.clear();
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = hexDigit(text[i]);
        const int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0) return false;
        bytes.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    return true;
}

std::string hexText(const void* data, size_t length) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::string text;
    text.reserve(2 * length);
    for (size_t i = 0; i < length; i++) {
        text += DIGITS[bytes[i] >> 4];
        text += DIGITS[bytes[i] & 15];
    }
    return text;
}

std::string printable(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x20 || code == 0x7F)
            appendFormat(result, "\\x%02x", code);
        else
            result += c;
    }
    return result;
}

void appendFormat(std::string& text, const char* format, ...) {
    char buffer[256];
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    if (length >= 0 && static_cast<size_t>(length) < sizeof buffer) {
        text.append(buffer, static_cast<size_t>(length));
    } else if (length >= 0) {
        const size_t start = text.size();
        text.resize(start + static_cast<size_t>(length) + 1);
        vsnprintf(text.data() + start, static_cast<size_t>(length) + 1, format, again);
        text.pop_back();
    }
    va_end(again);
}

bool readTextFile(const std::string& path, std::string& text) {
    FILE* file = fopen(path.c_str(), "re");
    if (file == nullptr) return false;
    text.clear();
    char chunk[4096];
    size_t got = 0;
    while (text.size() <= FILE_MAX && (got = fread(chunk, 1, sizeof chunk, file)) > 0)
        text.append(chunk, got);
    int problem = ferror(file) != 0 ? EIO : 0;
    if (text.size() > FILE_MAX) problem = EFBIG;
    fclose(file);
    errno = problem;
    return problem == 0;
}
