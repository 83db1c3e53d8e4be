// The text of a configuration, as a person writes it and `export` prints it. A line states one thing:
//
//     mode 2
//     group 5 ge1/1-4 lag1              members of an isolation group
//     vlan-group 7 vlan 10 ge1/1 ge1/2  members of a group that holds within a VLAN
//     pair ge1/1 to ge1/2 lag1          traffic of the source keeps away from the targets
//     pon off 20 30-33                  VLANs whose PON isolation is off
//     created group 6 ge1/3             rows that are entered without isolating yet
//     spanning 5 7-9                    groups that mean the same on other machines; all without such a line
//
// Where an interface is named, a pattern may stand for all that match it, now or later: `vnet*` for names of
// the board, `name:vnet?` for these, the kernel's names and its alternative names, `alias:red-*` for the
// kernel's aliases. `*` stands for any text, `?` for a character, `\*` for the star itself. `!vnet0` leaves
// out of the patterns of its line.
//
// A policy is a line and those behind it that begin with a role. It says who reaches whom, and the groups and
// pairs for that are found by lib/configuration/policy.h:
//
//     policy tenants vlan 10 groups 20-40  the VLAN and the group numbers may be left out
//       promiscuous eth0                   reaches all
//       community red vnet1 alias:red-*    reach one another, and the promiscuous ones
//       isolated tap*                      reach the promiscuous ones alone
//
// `#` at the front of a word begins a comment. The parser knows the grammar alone, takes any bytes and finds
// every mistake in them; lib/configuration/resolution.h resolves what the names stand for.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "common/config_lines.h"

// The configuration that is brought into force at every start.
inline constexpr char SAVED_FILE[] = "/etc/portisolate/isolation.conf";
inline constexpr size_t CONFIG_TEXT_MAX = 4 << 20;  // bytes

ConfigFile parseConfig(std::string_view text);
// The interfaces that its rows name, ranges expanded, without those that patterns stand for; more than
// CONFIG_NAMES_MAX are left out.
inline constexpr size_t CONFIG_NAMES_MAX = 1 << 16;
std::set<std::string> namesIn(const ConfigFile& file);
