// The text of a configuration, as a person writes it and `export` prints it. A line states one thing:
//
//     mode 2
//     group 5 ge1/1-4 lag1              members of an isolation group
//     vlan-group 7 vlan 10 ge1/1 ge1/2  members of a group that holds within a VLAN
//     pair ge1/1 to ge1/2 lag1          traffic of the source keeps away from the targets
//     pon off 20 30-33                  VLANs whose PON isolation is off
//     created group 6 ge1/3             rows that are entered without isolating yet
//
// Where an interface is named, a pattern may stand for all that match it, now or later: `vnet*` for names of
// the board, `name:vnet?` for these, the kernel's names and its alternative names, `alias:red-*` for the
// kernel's aliases. `*` stands for any text, `?` for a character, `\*` for the star itself. `!vnet0` leaves
// out of the patterns of its line.
//
// A policy is a line and those behind it that begin with a role. It says who reaches whom, and the groups and
// pairs for that are found by client/configuration/policy.h:
//
//     policy tenants vlan 10 groups 20-40  the VLAN and the group numbers may be left out
//       promiscuous eth0                   reaches all
//       community red vnet1 alias:red-*    reach one another, and the promiscuous ones
//       isolated tap*                      reach the promiscuous ones alone
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

enum class ConfigKind : uint8_t { mode, group, vlanGroup, pair, ponOff, policy };

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
    Place place;          // of the mode, the group or the source
    uint32_t number = 0;  // the mode or the group
    uint32_t vlan = 0;
    ConfigWord source;                // of a pair
    std::vector<ConfigWord> members;  // interfaces, ranges of them and patterns
    std::vector<uint32_t> vlans;      // of ponOff
    // Of a policy; without numbers of its own it takes those that nothing else uses.
    std::string name;
    uint32_t lastNumber = 0;  // the first is `number`; 0: none of its own
    std::vector<ConfigRole> roles;
};

struct ConfigFile {
    std::vector<ConfigLine> lines;
    std::vector<Mistake> mistakes;  // in the order of their places
};

ConfigFile parseConfig(std::string_view text);
// Whether a name would be read as a pattern, and the pattern that stands for that name alone.
bool isReadAsPattern(std::string_view name);
std::string escapedName(std::string_view name);
// The interfaces that its rows name, ranges expanded, without those that patterns stand for; more than
// CONFIG_NAMES_MAX are left out.
inline constexpr size_t CONFIG_NAMES_MAX = 1 << 16;
std::set<std::string> namesIn(const ConfigFile& file);
