#include "lib/link/printouts.h"

#include <algorithm>

#include "common/bytes.h"
#include "common/text.h"
#include "lib/text/args.h"

namespace {

// The lines without the blanks and line ends around them; empty ones are left out.
std::vector<std::string_view> linesOf(std::string_view text) {
    constexpr std::string_view AROUND = " \r\n";
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const size_t first = line.find_first_not_of(AROUND);
        if (first != std::string_view::npos) {
            lines.push_back(line.substr(first, line.find_last_not_of(AROUND) - first + 1));
        }
    }
    return lines;
}

std::vector<uint32_t> numbersOf(std::string_view line) {
    std::vector<uint32_t> numbers;
    while (!line.empty()) {
        const size_t first = std::min(line.find_first_of("0123456789"), line.size());
        line.remove_prefix(first);
        const size_t length = std::min(line.find_first_not_of("0123456789"), line.size());
        uint32_t number = 0;
        if (length > 0 && parseGivenNumber(line.substr(0, length), number)) numbers.push_back(number);
        line.remove_prefix(length);
    }
    return numbers;
}

// Appends the groups whose bits are set: the first byte's highest bit is group 1.
void readBits(std::string_view line, uint32_t& bytes, std::vector<uint32_t>& groups) {
    for (const std::string& word : splitWords(line)) {
        std::string byte;
        if (!parseHex(word, byte) || byte.size() != 1) return;
        for (uint32_t bit = 0; bit < 8; ++bit) {
            if ((static_cast<unsigned char>(byte[0]) & (0x80u >> bit)) != 0) {
                groups.push_back(bytes * 8 + bit + 1);
            }
        }
        ++bytes;
    }
}

}  // namespace

std::vector<std::pair<std::string, std::string>> readSettings(std::string_view printout) {
    std::vector<std::pair<std::string, std::string>> settings;
    for (const std::string_view line : linesOf(printout)) {
        const size_t colon = line.find(": ");
        if (colon == std::string_view::npos) continue;
        const std::string name(line.substr(0, colon)), value(line.substr(colon + 2));
        const auto known = std::find_if(settings.begin(), settings.end(),
                                        [&](const auto& setting) { return setting.first == name; });
        if (known != settings.end()) {
            known->second += "," + value;
        } else {
            settings.emplace_back(name, value);
        }
    }
    return settings;
}

std::vector<PrintedPair> readPairs(std::string_view printout) {
    std::vector<PrintedPair> pairs;
    uint32_t bytes = 0;
    for (const std::string_view line : linesOf(printout)) {
        const std::vector<uint32_t> numbers = numbersOf(line);
        if (line.starts_with("src ") && numbers.size() == 2) {
            pairs.push_back({numbers[0], numbers[1], {}});
            bytes = 0;
        } else if (!pairs.empty()) {
            readBits(line, bytes, pairs.back().groups);
        }
    }
    return pairs;
}

std::vector<std::vector<uint32_t>> readNumbers(std::string_view printout) {
    std::vector<std::vector<uint32_t>> rows;
    for (const std::string_view line : linesOf(printout)) {
        if (line.find("ifunit:") != std::string_view::npos ||
            line.find("ifUnit:") != std::string_view::npos) {
            rows.push_back(numbersOf(line));
        }
    }
    return rows;
}
