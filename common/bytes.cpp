#include "common/bytes.h"

#include <charconv>
#include <cstring>

namespace {

// All of `text` as digits of `base`; no sign.
template <typename Number>
bool parseDigits(std::string_view text, int base, Number& number) {
    const char* end = text.data() + text.size();
    Number parsed = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, parsed, base);
    if (text.empty() || error != std::errc() || rest != end) return false;
    number = parsed;
    return true;
}

}  // namespace

bool parseNumber(std::string_view text, uint32_t& number) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    return hexadecimal ? parseDigits(text.substr(2), 16, number) : parseDigits(text, 10, number);
}

bool parseHex(std::string_view text, std::string& bytes) {
    if (text.size() % 2 != 0) return false;
    bytes.clear();
    for (size_t at = 0; at < text.size(); at += 2) {
        unsigned char byte = 0;
        if (!parseDigits(text.substr(at, 2), 16, byte)) return false;
        bytes += static_cast<char>(byte);
    }
    return true;
}

std::string hexText(const void* data, size_t length) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::string text;
    text.reserve(2 * length);
    for (size_t at = 0; at < length; ++at) {
        text += DIGITS[bytes[at] >> 4];
        text += DIGITS[bytes[at] & 15];
    }
    return text;
}

uint32_t wordAt(const void* data) {
    uint32_t word = 0;
    std::memcpy(&word, data, sizeof(word));
    return word;
}

uint32_t wordAt(std::string_view bytes, size_t position) {
    return wordAt(bytes.data() + position * WORD_SIZE);
}

void appendWord(std::string& bytes, uint32_t word) {
    bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
}
