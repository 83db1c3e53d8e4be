#include "common/text.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

constexpr std::string_view BLANKS = " \t";

bool isControl(std::string_view character) {
    const auto lead = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return lead < 0x20 || lead == 0x7F;
    return lead == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::vector<std::string> splitWords(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const size_t end = std::min(text.find_first_of(BLANKS), text.size());
        if (end > 0) words.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

std::string_view trimmed(std::string_view text) {
    const size_t start = text.find_first_not_of(BLANKS);
    if (start == std::string_view::npos) return {};
    return text.substr(start, text.find_last_not_of(BLANKS) + 1 - start);
}

std::string_view withoutComment(std::string_view line) {
    return line.substr(0, line.find('#'));
}

size_t utf8Length(std::string_view text) {
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return 1;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
    for (size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0) != 0x80) return 0;
    }
    const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool outside = (lead == 0xED && byte(1) >= 0xA0) || (lead == 0xF4 && byte(1) >= 0x90);
    return overlong || outside ? 0 : length;
}

std::string safeText(std::string_view text) {
    std::string safe;
    while (!text.empty()) {
        const size_t length = utf8Length(text);
        const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
        if (length == 0 || isControl(character)) {
            for (const char byte : character) {
                safe += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
            }
        } else {
            safe += character;
        }
        text.remove_prefix(character.size());
    }
    return safe;
}
