// The kernel's packet filter as far as the Linux plane needs it: the table `portisolate` of the bridge
// family, its sets of pairs of devices, and the rules that drop what is in them. One netlink transaction for
// each change. The functions that return an int return 0 or an errno value, the kernel's own where it
// answered; the filter is an open one, and one task's at a time.
#pragma once

#include "host/linux/nft_sets.h"
#include "host/linux/nft_transaction.h"

// Lays the table; what stands in its sets stays, and its rules are replaced in one step.
int layTable(Filter& filter);

// Whether table, chain and rules are as layTable leaves them: `damage` is null, or what is wrong with them,
// in words that follow the table's name. `pon` counts what the PON isolation of VLANs has dropped.
int inspectTable(Filter& filter, const char*& damage, FilterCounter& pon);
