// The rows of the daemon and its PON isolation as listings.
#pragma once

#include <vector>

#include "lib/link/rows.h"
#include "lib/text/listing.h"

Listing rowListing(Session& session, const RowFamily& family, const std::vector<Row>& rows);

// VLANs with their PON isolation; addPonRow takes one of PON_ISOLATION_...
Listing ponListing();
void addPonRow(Listing& listing, uint32_t vlan, uint32_t state);
// The VLANs in which it is off.
Listing ponOffListing(Session& session);
