// Why two interfaces may or may not talk, by the tables and by the hardware.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/spanning_groups.h"
#include "lib/configuration/judgement.h"
#include "lib/text/listing.h"

// "group 5", "groups 5 7"
std::string groupsText(SpanningGroups groups);

// What of the saved configuration wants an interface isolated.
struct WantedBy {
    std::string interface;
    std::string policy;  // empty: a line of its own
    uint32_t line = 0;
    bool operator==(const WantedBy&) const = default;
};
// "vnet3 is isolated by the policy tenants, line 4"
std::string wantedText(const WantedBy& wanted);

// The answer for one direction.
struct Direction {
    std::string from{}, to{};
    SpanningGroups groups = 0;  // of the sender, where it is on another machine; `from` is empty then
    uint32_t vlan = 0;
    Verdict tables = Verdict::forwards;
    std::vector<std::string> reasons{};
    std::vector<std::string> notes{};
    std::vector<WantedBy> saved{};  // of the reasons
    Verdict hardware = Verdict::forwards;
    std::string reason{};  // of the hardware
    bool agrees = true;
    // Dropped between these two, where the plane counts and holds something between them.
    std::optional<uint64_t> packets{}, bytes{};
};
using Explanation = std::array<Direction, 2>;

// VLAN 0: traffic of no particular VLAN. Ends the command when they are not two interfaces of the board.
Explanation explain(Session& session, uint32_t from, uint32_t to, uint32_t vlan);
Json explanationAnswer(const Explanation& explanation);

// "5,7" or "1-4": groups that may span machines. Ends the command over others.
SpanningGroups groupsArgument(const std::string& text);
// What a frame meets at an interface that comes from a member of these groups on another machine.
Direction explainRemote(Session& session, uint32_t to, SpanningGroups groups, uint32_t vlan);
Json remoteAnswer(const Direction& answer);
