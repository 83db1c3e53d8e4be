// The chains of the filter's table and their rules.
//
// Every expression is one that the filter's own command prints and reads again.
#pragma once

#include <vector>

#include "host/linux/nft_layout.h"
#include "host/linux/nft_transaction.h"

// The chains of a layout, those first that others refer to.
std::vector<ChainShape> chainsOf(const Filter& filter, const FilterLayout& layout);
// Appends a rule that the kernel takes if it knows the VLAN of untagged frames.
void appendPvidProbe(Batch& batch, const char* table, const char* chain);
// Appends the rules of all chains of the layout.
void appendRules(Batch& batch, const FilterLayout& layout);
