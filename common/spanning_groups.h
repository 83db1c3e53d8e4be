// Groups whose numbers mean the same on every machine, as bits and as an operator writes them: "5 7", "1-16",
// "none".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using SpanningGroups = uint16_t;  // bit 0: group 1
inline constexpr uint32_t SPANNING_GROUP_MAX = 16;
inline constexpr SpanningGroups SPANNING_ALL = UINT16_MAX;
inline constexpr char SPANNING_NONE[] = "none";

// The bit of a group's number, 1 to SPANNING_GROUP_MAX.
constexpr SpanningGroups spanningBit(uint32_t group) {
    return static_cast<SpanningGroups>(1u << (group - 1));
}

std::vector<uint32_t> spanningNumbers(SpanningGroups groups);
// Runs of three or more as ranges.
std::string spanningText(SpanningGroups groups);
// Adds what a word names, a group or a range of them. What is wrong with it, empty for nothing.
std::string addSpanningWord(const std::string& word, SpanningGroups& groups);
