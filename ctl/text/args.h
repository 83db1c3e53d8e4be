// The words of a command line: numbers, ranges, abbreviations, and how a command's signature says which
// arguments and options it takes. Pure functions; a failure comes back as a sentence for the operator.
//
// A signature such as "GROUP [INTERFACE...] --vlan VLAN" is the one description of a command's arguments: the
// help shows it and the words are checked against it. Brackets mean optional, dots any number; an option
// without brackets must be given.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct GivenOption {
    std::string name;  // with its dashes
    std::string value;
};

// A command line taken apart: what holds for all commands, what belongs to one, and the rest in order.
struct CommandLine {
    std::vector<std::string> words;
    std::vector<GivenOption> options;
    int64_t timeoutMs = 5000;
    bool json = false;
    bool help = false;
};

// Empty on success, else what is wrong.
std::string parseCommandLine(const std::vector<std::string>& given, CommandLine& line);

// Checks `arguments` and `options` against a signature. Empty when they fit.
std::string checkSignature(std::string_view signature, const std::vector<std::string>& arguments,
                           const std::vector<GivenOption>& options);

// The words between blanks.
std::vector<std::string> splitWords(std::string_view text);

// The value of an option, null when it was not given.
const std::string* optionValue(const std::vector<GivenOption>& options, std::string_view name);

// Decimal without leading zeros, or hexadecimal with 0x; nothing around it.
bool parseNumber(std::string_view text, uint32_t& number);
// Seconds with an optional fraction, more than 0 and at most a day, in milliseconds.
bool parseSeconds(std::string_view text, int64_t& milliseconds);
// "5,1,0x10"
bool parseWords(std::string_view text, std::vector<uint32_t>& words);
// "0a1bff", an even number of digits
bool parseHex(std::string_view text, std::string& bytes);

// The texts that "ge1/1-4" or "10-20" stands for: the last number counted up, with its leading zeros. Empty
// when `text` is no range, runs downwards or holds more than RANGE_MAX.
inline constexpr uint32_t RANGE_MAX = 4096;
std::vector<std::string> expandRange(std::string_view text);

// Finds `text`, or the one name that it begins, among `names`; exact names win. Where `error` is left empty
// the result is the position of the name.
size_t pickName(const std::vector<std::string>& names, std::string_view text, const char* what,
                std::string& error);

// Those of `names` that `text` may have been meant to be, best first, three at most.
std::vector<std::string> nearNames(const std::vector<std::string>& names, std::string_view text);
