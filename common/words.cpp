#include "common/words.h"

#include <algorithm>
#include <utility>

#include "common/bytes.h"

namespace {

constexpr size_t NEAR_NAMES_MAX = 3;
constexpr size_t QUOTED_MAX = 40;  // bytes of a wrong word that are shown

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

}  // namespace

bool parseGivenNumber(std::string_view text, uint32_t& number) {
    const bool leadingZero = text.size() > 1 && text[0] == '0' && isDigits(text);
    return !leadingZero && parseNumber(text, number);
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

std::string quoted(std::string_view text) {
    const bool cut = text.size() > QUOTED_MAX;
    return "\"" + std::string(text.substr(0, QUOTED_MAX)) + (cut ? "..." : "") + "\"";
}

size_t textWidth(std::string_view text) {
    const auto starts = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; };
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), starts));
}

std::string joinWords(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (size_t at = 0; at < words.size(); ++at) text += (at == 0 ? "" : between) + words[at];
    return text;
}

std::string joinChoices(const std::vector<std::string>& words, const char* conjunction) {
    if (words.size() < 2) return joinWords(words, "");
    const std::vector<std::string> front(words.begin(), words.end() - 1);
    return joinWords(front, ", ") + " " + conjunction + " " + words.back();
}
