// The kernel's packet filter as far as the Linux plane needs it: the table `portisolate` of the bridge
// family, its sets and maps, and the rules that look frames up in them. One netlink transaction for each
// change. The functions that return an int return 0 or an errno value, the kernel's own where it answered;
// the filter is an open one, and one task's at a time.
//
// What a frame pays for
// ---------------------
// Rules and hooks stand only for what is in use. One look-up in `pairs` decides what holds for all traffic.
// Where something holds within VLANs, a frame's VLAN is noted in its mark where it comes in, before the
// bridge strips or adds tags, and asked for where it is forwarded.
#pragma once

#include "host/linux/nft_content.h"
#include "host/linux/nft_rules.h"
#include "host/linux/nft_sets.h"
#include "host/linux/nft_transaction.h"

// What the table has become, as the kernel tells it, and the generation of the filter before and after.
struct LaidTable {
    TableContent content;
    uint32_t before = 0;
    uint32_t after = 0;
};

// What becomes of the elements that stand there: they stay, or those that name VLANs by marks, or all of
// them, are made anew and have to stand in the change. The table itself is another one after an exchange.
enum class LayMode : uint8_t { keep, marksMove, exchange };

// Lays the table and makes the change of elements in one transaction: its rules are replaced in one step, and
// what does not belong to it goes.
int layTable(Filter& filter, const FilterLayout& layout, const RawChange& change, LayMode mode,
             LaidTable& laid);
// Whether what stands is a table of another kind, owned or not, which only an exchange turns into ours.
bool standsOtherwise(const Filter& filter, const TableContent& standing);
// A change of elements in one transaction: all or nothing.
int changeElements(Filter& filter, const RawChange& change);

// Finds out whether this kernel knows the VLAN in which an untagged frame came in; changes nothing there.
void probePvid(Filter& filter);
// Whether this kernel has tables that are one socket's alone and outlive it; changes nothing there.
bool probeOwner(Filter& filter);

// Whether what stands is of the layout that came before this one.
bool isFormerLayout(const TableContent& standing);
