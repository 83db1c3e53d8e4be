// The kernel's packet filter as far as the Linux plane needs it: the table `portisolate` of the bridge
// family, its sets of pairs of devices, and the rules that drop what is in them. One netlink transaction for
// each change. The functions that return an int return 0 or an errno value, the kernel's own where it
// answered; the filter is an open one, and one task's at a time.
#pragma once

#include "host/linux/nft_content.h"
#include "host/linux/nft_sets.h"
#include "host/linux/nft_transaction.h"

// Lays the table in one transaction: what stands in its sets stays, its rules are replaced in one step, and
// what does not belong to it goes. `laid` is what the kernel then tells of it.
int layTable(Filter& filter, TableContent& laid);
