// The words of a configuration as an operator writes them: numbers, ranges, lists in a sentence, and what a
// mistyped one may have been meant to be. All of it is pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// As parseNumber, but without leading zeros: an operator may mean them to be octal.
bool parseGivenNumber(std::string_view text, uint32_t& number);

// The texts that "ge1/1-4" or "10-20" stands for: the last number counted up, with its leading zeros. Empty
// when `text` is not a range, runs downwards or holds more than RANGE_MAX.
inline constexpr uint32_t RANGE_MAX = 4096;
std::vector<std::string> expandRange(std::string_view text);
// The same, but `text` itself where it is not a range.
std::vector<std::string> expandWord(const std::string& text);

// Those of `names` that `text` may have been meant to be, best first, three at most.
std::vector<std::string> nearNames(const std::vector<std::string>& names, std::string_view text);

// A word as a mistake shows it.
std::string quoted(std::string_view text);
// Columns that a text takes on a terminal.
size_t textWidth(std::string_view text);
std::string joinWords(const std::vector<std::string>& words, const char* between);
// "a, b or c".
std::string joinChoices(const std::vector<std::string>& words, const char* conjunction);
