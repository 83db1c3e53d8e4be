#include "lib/text/args.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/bytes.h"
#include "lib/text/exit.h"
#include "lib/text/output.h"
#include "wire/records.h"

namespace {

constexpr int64_t TIMEOUT_MAX_MS = 24 * 3600 * 1000LL;

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// The hardware is told 16 bits: what is too large for a VLAN id would isolate in another VLAN.
uint32_t vlanArgument(const std::string& text) {
    uint32_t vlan = 0;
    if (parseGivenNumber(text, vlan) && vlan >= 1 && vlan <= VLAN_ID_MAX) return vlan;
    throw misuse(fmt::format("VLAN \"{}\" is not a VLAN id: give 1 to {}", text, VLAN_ID_MAX));
}

}  // namespace

bool parseSeconds(std::string_view text, int64_t& milliseconds) {
    const size_t point = std::min(text.find('.'), text.size());
    uint32_t seconds = 0;
    if (!isDigits(text.substr(0, point)) || !parseNumber(text.substr(0, point), seconds)) return false;
    uint32_t thousandths = 0;
    if (point < text.size()) {
        std::string fraction(text.substr(point + 1));
        if (!isDigits(fraction)) return false;
        fraction.resize(3, '0');
        parseNumber(fraction, thousandths);
    }
    milliseconds = seconds * int64_t{1000} + thousandths;
    return milliseconds > 0 && milliseconds <= TIMEOUT_MAX_MS;
}

bool parseWords(std::string_view text, std::vector<uint32_t>& words) {
    for (;;) {
        const size_t comma = std::min(text.find(','), text.size());
        uint32_t word = 0;
        if (!parseGivenNumber(text.substr(0, comma), word)) return false;
        words.push_back(word);
        if (comma == text.size()) return true;
        text.remove_prefix(comma + 1);
    }
}

uint32_t numberArgument(const char* what, const std::string& text) {
    uint32_t number = 0;
    if (parseGivenNumber(text, number)) return number;
    throw misuse(fmt::format("{} \"{}\" is not a number: write 5 or 0x1f, up to 4294967295", what, text));
}

uint32_t numberOption(const std::vector<Field>& options, std::string_view name, const char* what,
                      uint32_t fallback) {
    const std::string* text = fieldValue(options, name);
    return text != nullptr ? numberArgument(what, *text) : fallback;
}

std::vector<uint32_t> vlanArguments(const std::vector<std::string>& texts) {
    std::vector<uint32_t> vlans;
    for (const std::string& text : texts) {
        for (const std::string& single : expandWord(text)) vlans.push_back(vlanArgument(single));
    }
    return vlans;
}

uint32_t vlanOption(const std::vector<Field>& options) {
    const std::string* text = fieldValue(options, "--vlan");
    return text != nullptr ? vlanArgument(*text) : 0;
}

size_t pickName(const std::vector<std::string>& names, std::string_view text, const char* what,
                const std::string& where) {
    std::vector<std::string> candidates;
    size_t found = 0;
    for (size_t at = 0; at < names.size(); ++at) {
        if (names[at] == text) return at;
        if (!text.empty() && names[at].starts_with(text)) {
            candidates.push_back(names[at]);
            found = at;
        }
    }
    if (candidates.size() == 1) return found;
    if (candidates.size() > 1) {
        throw misuse(fmt::format("{}\"{}\" is ambiguous: {}", where, text, joinChoices(candidates, "or")));
    }
    const std::vector<std::string> near = nearNames(names, text);
    throw misuse(fmt::format("{}no {} \"{}\"; {}", where, what, text,
                             near.empty() ? "there are " + joinChoices(names, "and")
                                          : "did you mean " + joinChoices(near, "or") + "?"));
}
