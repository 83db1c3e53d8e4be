#include "ctl/text/args.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/bytes.h"
#include "ctl/text/exit.h"
#include "ctl/text/output.h"
#include "wire/records.h"

namespace {

constexpr int64_t TIMEOUT_MAX_MS = 24 * 3600 * 1000LL;
constexpr size_t NEAR_NAMES_MAX = 3;

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Letters to insert, remove, change, or swap with their neighbour to make one of the other.
size_t editDistance(std::string_view left, std::string_view right) {
    std::vector<std::vector<size_t>> cost(left.size() + 1, std::vector<size_t>(right.size() + 1));
    for (size_t i = 0; i <= left.size(); ++i) {
        for (size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const size_t change = cost[i - 1][j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, change});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[left.size()][right.size()];
}

// The hardware is told 16 bits: what is too large for a VLAN id would isolate in another VLAN.
uint32_t vlanArgument(const std::string& text) {
    uint32_t vlan = 0;
    if (parseGivenNumber(text, vlan) && vlan >= 1 && vlan <= VLAN_ID_MAX) return vlan;
    throw misuse(fmt::format("VLAN \"{}\" is not a VLAN id: give 1 to {}", text, VLAN_ID_MAX));
}

}  // namespace

bool parseGivenNumber(std::string_view text, uint32_t& number) {
    const bool leadingZero = text.size() > 1 && text[0] == '0' && isDigits(text);
    return !leadingZero && parseNumber(text, number);
}

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

std::vector<std::string> expandRange(std::string_view text) {
    const size_t dash = text.rfind('-');
    if (dash == std::string_view::npos) return {};
    const std::string_view front = text.substr(0, dash);
    const size_t letters = front.find_last_not_of("0123456789");
    const size_t start = letters == std::string_view::npos ? 0 : letters + 1;
    const std::string_view low = front.substr(start);
    const std::string_view high = text.substr(dash + 1);
    uint32_t first = 0, last = 0;
    if (!isDigits(low) || !isDigits(high) || !parseNumber(low, first) || !parseNumber(high, last) ||
        first > last || last - first >= RANGE_MAX) {
        return {};
    }
    std::vector<std::string> texts;
    for (uint32_t count = 0; count <= last - first; ++count) {
        std::string digits = std::to_string(first + count);
        if (low[0] == '0' && digits.size() < low.size()) digits.insert(0, low.size() - digits.size(), '0');
        texts.push_back(std::string(front.substr(0, start)) + digits);
    }
    return texts;
}

std::vector<std::string> expandWord(const std::string& text) {
    const std::vector<std::string> range = expandRange(text);
    return range.empty() ? std::vector<std::string>{text} : range;
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

std::vector<std::string> nearNames(const std::vector<std::string>& names, std::string_view text) {
    const size_t far = text.size() < 5 ? 1 : 2;  // letters that may be wrong
    std::vector<std::pair<size_t, std::string>> near;
    for (const std::string& name : names) {
        if (std::max(name.size(), text.size()) - std::min(name.size(), text.size()) > far) continue;
        const size_t distance = editDistance(name, text);
        if (distance <= far && distance < text.size()) near.emplace_back(distance, name);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<std::string> best;
    for (size_t at = 0; at < std::min(near.size(), NEAR_NAMES_MAX); ++at) best.push_back(near[at].second);
    return best;
}
