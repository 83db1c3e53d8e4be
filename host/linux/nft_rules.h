// The chains of the filter's table and their rules.
//
// Every expression is one that the filter's own command prints and reads again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/linux/nft_sets.h"
#include "host/linux/nft_transaction.h"

// What of the table stands, and what the bridge takes for a frame's VLAN.
struct FilterLayout {
    bool pairs = false;   // is anything in `pairs`
    bool ports = false;   // in `vlan_ports`
    bool access = false;  // in `access`
    bool filters = true;  // the bridge filters VLANs, or it is not known
    uint16_t tagProtocol = 0x8100;
    std::vector<std::string> closed = {};  // patterns of the doors

    bool operator==(const FilterLayout&) const = default;
};

struct ChainShape {
    const char* name;
    bool hooked;
    uint32_t hook;
    int32_t priority;
};

inline constexpr char FORWARD_CHAIN[] = "forward";

// The chains of a layout, those first that others refer to.
std::vector<ChainShape> chainsOf(const FilterLayout& layout);
// Appends a rule that the kernel takes if it knows the VLAN of untagged frames.
void appendPvidProbe(Batch& batch, const char* table, const char* chain);
// Appends the rules of all chains of the layout.
void appendRules(Batch& batch, const FilterLayout& layout);
