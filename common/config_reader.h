// How the words of a configuration's line are taken off it one after the other; common/config_file.cpp has
// the grammar. Each of these answers false after a mistake, which it has noted with its place.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/config_lines.h"

using ConfigWords = std::span<const ConfigWord>;

// What is being read: the line so far, and where mistakes go.
struct Reader {
    ConfigFile& file;
    std::set<uint32_t>& ponOff;  // VLANs of the lines before
    ConfigWords words{};         // those left of the line
    Place end{};                 // behind the last word
    bool inPolicy = false;       // roles belong to the policy that stands last
    bool policyBroken = false;   // the last line but for roles has a mistake
};

bool mistake(Reader& reader, Place place, std::string text);

// Takes the next word off the line; without one it is a mistake that `wanted` is missing.
bool takeWord(Reader& reader, const char* wanted, ConfigWord& word);
bool takeKeyword(Reader& reader, const char* keyword);
bool takeNumber(Reader& reader, const char* wanted, uint32_t least, uint32_t most, ConfigWord& word,
                uint32_t& number);
// Tells patterns from names, and takes off what stands in front of them.
bool readSelector(Reader& reader, ConfigWord& word);
// All that is left, which has to be interfaces.
bool takeMembers(Reader& reader, std::vector<ConfigWord>& members);

// Whether a name would be read as a pattern, and the pattern that stands for that name alone.
bool isReadAsPattern(std::string_view name);
std::string escapedName(std::string_view name);
