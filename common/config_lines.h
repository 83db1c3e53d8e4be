// The lines of a configuration (common/config_file.h has their grammar), and what is wrong with them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/spanning_groups.h"

// Both count from 1; columns are characters.
struct Place {
    uint32_t line = 0;
    uint32_t column = 0;
};

struct Mistake {
    Place place;
    std::string text;
};

// What a word that names interfaces is compared with.
enum class WordKind : uint8_t {
    plain,    // a name, a number or a range of them
    glob,     // a pattern of the board's names
    anyName,  // a pattern of all names
    alias,    // a pattern of aliases
};

struct ConfigWord {
    Place place;
    std::string text;  // a pattern without what stands in front of it
    WordKind kind = WordKind::plain;
    bool excluded = false;  // leaves out of the patterns of its line
};

enum class ConfigKind : uint8_t { mode, group, vlanGroup, pair, ponOff, policy, spanning };

enum class RoleKind : uint8_t { promiscuous, community, isolated };

// A line of a policy. Lines of one community are one community.
struct ConfigRole {
    RoleKind kind = RoleKind::isolated;
    Place place;
    std::string name;  // of the community
    std::vector<ConfigWord> members;
};

struct ConfigLine {
    ConfigKind kind = ConfigKind::mode;
    bool active = true;   // of rows: false for those behind `created`
    Place place;          // of the mode, the group, the source or the first that spans
    uint32_t number = 0;  // the mode or the group
    uint32_t vlan = 0;
    ConfigWord source;                // of a pair
    std::vector<ConfigWord> members;  // interfaces, ranges of them and patterns
    std::vector<uint32_t> vlans;      // of ponOff
    SpanningGroups spanning = 0;
    // Of a policy; without numbers of its own it takes those that nothing else uses.
    std::string name;
    uint32_t lastNumber = 0;  // the first is `number`; 0: none of its own
    std::vector<ConfigRole> roles;
};

struct ConfigFile {
    std::vector<ConfigLine> lines;
    std::vector<Mistake> mistakes;  // in the order of their places
};
