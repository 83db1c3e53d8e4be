// The text of a configuration, as a person writes it and `export` prints it. A line states one thing:
//
//     mode 2
//     group 5 ge1/1-4 lag1              members of an isolation group
//     vlan-group 7 vlan 10 ge1/1 ge1/2  members of a group that holds within a VLAN
//     pair ge1/1 to ge1/2 lag1          traffic of the source keeps away from the targets
//     pon off 20 30-33                  VLANs whose PON isolation is off
//     created group 6 ge1/3             rows that are entered without isolating yet
//
// `#` at the front of a word begins a comment. The parser knows the grammar alone, takes any bytes and finds
// every mistake in them; client/configuration/configuration.h resolves what the names stand for.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// The configuration that is brought into force at every start.
inline constexpr char SAVED_FILE[] = "/etc/portisolate/isolation.conf";
inline constexpr size_t CONFIG_TEXT_MAX = 4 << 20;  // bytes

// Both count from 1; columns are characters.
struct Place {
    uint32_t line = 0;
    uint32_t column = 0;
};

struct Mistake {
    Place place;
    std::string text;
};

struct ConfigWord {
    Place place;
    std::string text;
};

enum class ConfigKind : uint8_t { mode, group, vlanGroup, pair, ponOff };

struct ConfigLine {
    ConfigKind kind = ConfigKind::mode;
    bool active = true;   // of rows: false for those behind `created`
    Place place;          // of the mode, the group or the source
    uint32_t number = 0;  // the mode or the group
    uint32_t vlan = 0;
    ConfigWord source;                // of a pair
    std::vector<ConfigWord> members;  // interfaces and ranges of them
    std::vector<uint32_t> vlans;      // of ponOff
};

struct ConfigFile {
    std::vector<ConfigLine> lines;
    std::vector<Mistake> mistakes;  // in the order of their places
};

ConfigFile parseConfig(std::string_view text);
// The interfaces that its rows name, ranges expanded; more than CONFIG_NAMES_MAX are left out.
inline constexpr size_t CONFIG_NAMES_MAX = 1 << 16;
std::set<std::string> namesIn(const ConfigFile& file);
