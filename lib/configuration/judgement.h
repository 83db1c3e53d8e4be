// What the daemon's tables say about traffic from one interface to another: a pure function of the tables.
//
// Ports
//   The hardware is programmed port by port, and so the tables are judged. Traffic of a trunk runs over its
//   plugged member ports, or over the trunk itself where it has none; traffic from A to B is every flow from
//   a port of A to a port of B. An isolation of a trunk is programmed at its member ports on the sides that
//   the daemon's two switches say, and at the trunk itself on the others. The target of a one-way pair is
//   always replaced. With one switch on and the other off, a group programs each pair of members in both
//   orders.
//
// Who blocks
//   An active row of a group isolates its member from all other active members, both ways; a VLAN group does
//   so within its VLAN. A member that was only created is not isolated by itself, but is by those that were
//   activated after it: then the daemon has claimed the ports, which its inner table shows. An active pair
//   blocks one direction. PON isolation keeps the ports that it holds apart, within every VLAN where it is
//   not off.
//
// The verdict
//   All flows blocked, some or none. With it come the findings: what blocks, and what comes close, such as a
//   group of another VLAN or a row that is not active. lib/configuration/judgement_text.h puts them into
//   words.
//
// Where the hardware says otherwise
//   It keeps a pair of ports under the scope of the group that claimed it first, even when that group is
//   gone. The claim names the groups that hold the ports now, to explain a difference.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lib/configuration/configuration.h"
#include "lib/link/board_client.h"

// What a judgement rests on.
struct Tables {
    std::vector<BoardInterface> interfaces;
    Configuration configuration;
    bool sourceTrunkToPort = true;
    bool targetTrunkToPort = true;
    // The groups that claim a pair of ports, the smaller number first.
    std::map<std::pair<uint32_t, uint32_t>, std::set<uint32_t>> claims;
};

enum class Verdict : uint8_t { forwards, blocked, partly };

enum class FindingKind : uint8_t { members, pair, pon };
enum class Bearing : uint8_t {
    blocks,
    otherVlan,  // of members: the group holds within another VLAN
    inactive,   // of a row that is not active
    noPorts,    // of rows that no pair of ports comes of
    noVlan,     // of pon: traffic of no particular VLAN was asked about
    off,        // of pon
};

// One thing in the tables that bears on the traffic.
struct Finding {
    FindingKind kind = FindingKind::members;
    Bearing bearing = Bearing::blocks;
    ConfigRow row{};       // of members the one on the side of the source; of pair
    uint32_t other = 0;    // of members: the one on the side of the target
    uint32_t waiting = 0;  // of members: the inactive one
    uint32_t vlan = 0;     // of pon
};

// The groups that claim two ports.
struct Claim {
    uint32_t source = 0;
    uint32_t target = 0;
    std::set<uint32_t> groups;
};

struct Judgement {
    Verdict verdict = Verdict::forwards;
    std::vector<Finding> findings;
    std::optional<Claim> claim;  // of the first flow that is claimed
};

// Takes two different interfaces of the board; VLAN 0: traffic of no particular VLAN.
Judgement judgeTables(const Tables& tables, uint32_t from, uint32_t to, uint32_t vlan);

// Null for a number that the board does not have.
const BoardInterface* interfaceOf(const Tables& tables, uint32_t number);
