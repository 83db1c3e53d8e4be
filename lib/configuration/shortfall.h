// Where ports are isolated in fewer VLANs than their groups say.
//
// The daemon has the hardware hold two ports once, in the VLAN of the group that claims them first, or in all
// of them. A group that comes later is told 0 and adds nothing: a plain group over ports that a VLAN group
// claimed, or a group of a second VLAN, holds in the first VLAN alone.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lib/configuration/configuration.h"
#include "lib/link/board_client.h"
#include "lib/link/plane.h"

// The scopes in which each interface is an active member of a group, by itself or within its trunk.
using GroupScopes = std::map<uint32_t, std::set<RowScope>>;
GroupScopes groupScopes(const std::vector<BoardInterface>& interfaces, const Configuration& configuration);
std::set<RowScope> sharedScopes(const GroupScopes& scopes, uint32_t left, uint32_t right);

struct Shortfall {
    std::string left, right;    // as the plane calls the two ports
    std::set<uint32_t> vlans;   // in which they are isolated
    std::set<RowScope> wanted;  // the groups that ask for more
};
std::vector<Shortfall> findShortfalls(const std::vector<BoardInterface>& interfaces,
                                      const Configuration& configuration,
                                      const std::vector<PlaneEntry>& entries);
// "ge1/1 and pon2/4 are isolated in VLAN 10 only, since they were claimed there first; group 8 asks for every
// VLAN"
std::string shortfallText(const Shortfall& shortfall);
