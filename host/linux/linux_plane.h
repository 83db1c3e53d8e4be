// The forwarding plane of a Linux bridge: isolations are elements of sets in the kernel's packet filter,
// which drops what the bridge would forward from one port to another. The table outlives the daemon on
// purpose: neither its restart nor its crash opens what was isolated. What an earlier run left is kept apart
// from what this one was asked for, until it is asked for again or swept.
//
// Built where libmnl and libnftnl are there; else there is no such plane.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/planes/plane.h"

// A plane whose state is null when this program was built without it. The kernel is not touched yet.
Plane createLinuxPlane();

// Lays the table, keeping what stands in one that is there, and takes the access devices for the PON
// isolation of VLANs. Returns what went wrong, as a sentence; the plane then refuses every command with the
// kernel's status. The board's lock is held, as for all that follows.
std::string startLinuxPlane(const Plane& plane, const std::set<std::string>& accessDevices);

// The kernel's name of an interface has changed: what isolates it moves to the new one.
int32_t renameLinuxPort(const Plane& plane, uint32_t ifUnit, const std::string& device);

// The VLANs whose frames leave a VLAN-filtering bridge untagged, by device: the filter cannot see the VLAN of
// a frame whose tag the bridge has stripped. A change that cannot be made is reported.
using EgressVlans = std::map<std::string, std::vector<uint16_t>>;
void setLinuxEgress(const Plane& plane, const EgressVlans& vlans);

// Looks whether the table is still whole, and reports once when it is not, and once when it is again. Cheap
// while nobody changed the filter; to be called about once a second.
void watchLinuxTable(const Plane& plane);

// A sentence for the operator that stands in every inspection, until it is withdrawn by the same key.
void setLinuxNote(const Plane& plane, const std::string& key, const std::string& sentence);
