#include "common/spanning_groups.h"

#include <fmt/format.h>

#include "common/words.h"

namespace {

constexpr uint32_t RUN_SHORTEST = 3;  // groups that are worth a range

}  // namespace

std::vector<uint32_t> spanningNumbers(SpanningGroups groups) {
    std::vector<uint32_t> numbers;
    for (uint32_t group = 1; group <= SPANNING_GROUP_MAX; ++group) {
        if ((groups & spanningBit(group)) != 0) numbers.push_back(group);
    }
    return numbers;
}

std::string spanningText(SpanningGroups groups) {
    std::string text;
    const uint32_t bits = groups;
    for (uint32_t first = 1; first <= SPANNING_GROUP_MAX; ++first) {
        uint32_t last = first;
        while ((bits >> (last - 1) & 1) != 0) ++last;  // ends behind the highest bit
        const uint32_t run = last - first;
        if (run == 0) continue;
        const char* const blank = text.empty() ? "" : " ";
        text += run < RUN_SHORTEST ? fmt::format("{}{}", blank, first)
                                   : fmt::format("{}{}-{}", blank, first, last - 1);
        if (run >= RUN_SHORTEST) first = last;
    }
    return text.empty() ? SPANNING_NONE : text;
}

std::string addSpanningWord(const std::string& word, SpanningGroups& groups) {
    for (const std::string& text : expandWord(word)) {
        uint32_t group = 0;
        if (!parseGivenNumber(text, group) || group < 1 || group > SPANNING_GROUP_MAX) {
            return fmt::format(
                "{} is not a group that can span machines: give 1 to {}, for each of which a frame has a bit",
                quoted(text), SPANNING_GROUP_MAX);
        }
        if ((groups & spanningBit(group)) != 0) return fmt::format("group {} was named before", group);
        groups |= spanningBit(group);
    }
    return {};
}
