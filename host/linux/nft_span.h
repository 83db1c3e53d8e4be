// The rules by which groups span machines: a frame that leaves by a port that leads to others bears the
// groups of its sender in 16 bits of its mark, which a vxlan device with the group policy extension carries
// along; one that comes from there is dropped at every port that shares one.
//
// What a frame pays for
// ---------------------
// One that does not cross: two comparisons, or look-ups where several ports lead to other machines. One that
// leaves: a look-up for its groups, and if it has any, one for what the port carries. One that comes in: for
// each group in use a comparison, and a look-up for each group that its sender is in.
#pragma once

#include <vector>

#include "host/linux/nft_layout.h"
#include "host/linux/nft_transaction.h"

inline constexpr char SPAN_IN_CHAIN[] = "span_in";        // counts what it drops at shut doors
inline constexpr char SPAN_CARRY_CHAIN[] = "span_carry";  // counts what it drops for want of a carrier

void appendSpanChains(std::vector<ChainShape>& chains);
void appendSpanRules(Batch& batch, const FilterLayout& layout);
