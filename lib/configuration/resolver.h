// A file while it is resolved: what its rows and its policies both need.
#pragma once

#include "lib/configuration/resolved.h"

inline constexpr size_t CONFIG_ROWS_MAX = 1 << 20;  // no daemon's tables hold more, and ranges come at will

struct Resolver {
    Session& session;
    ConfigFile& file;
    const Standing& standing;
    Resolution result{};
    std::map<uint32_t, ConfigLine> groups{};  // the line that a number is used in first
    std::set<uint32_t> reserved{};            // numbers that policies have as their own
    std::set<uint32_t> policyNumbers{};       // that policies use
    // Whose port it is, by VLAN and number of the port.
    std::map<std::pair<uint32_t, uint32_t>, std::pair<std::string, Place>> policyPorts{};
};

void addMistake(Resolver& resolver, Place place, std::string text);
std::string lineText(Place place);

// The interfaces that a word without a pattern stands for; none after a mistake.
std::vector<uint32_t> resolveWord(Resolver& resolver, const ConfigWord& word);
// False, after a mistake, where there is no room for the row.
bool addRow(Resolver& resolver, const ConfigRow& row, bool active, const Origin& origin);
