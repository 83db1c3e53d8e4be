// The forwarding plane of a Linux bridge: isolations are elements of sets in the kernel's packet filter,
// which drops what the bridge would forward from one port to another. Built where libmnl and libnftnl are
// there.
//
// What outlives the daemon
// ------------------------
// The table does, on purpose: neither a restart nor a crash opens what was isolated. What an earlier run left
// over is kept apart from what this one was asked for, until it is asked for again or swept.
//
// By name, not by number
// ----------------------
// The filter knows devices by name, the daemon knows interfaces by number. The plane remembers the device of
// each interface that is part of an entry, and moves the entry when the device is renamed. A device that is
// gone keeps its elements, and is isolated the moment one of its name comes back.
//
// Thread-safety
// -------------
// The board's lock is held during every call here, as it is for the functions of the Plane record. They talk
// to the kernel under that lock.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/linux/span_devices.h"
#include "host/planes/frame_mark.h"
#include "host/planes/healing.h"
#include "host/planes/plane.h"

// The kernel is not touched yet: until startLinuxPlane the plane refuses every command.
Plane createLinuxPlane();

// What the bridge takes for a frame's VLAN.
struct BridgeVlans {
    bool filters = true;            // also when it is not known
    uint16_t tagProtocol = 0x8100;  // the type of its tags
};

struct LinuxPlaneStart {
    std::set<std::string> access = {};  // devices that the PON isolation of VLANs keeps apart
    uint32_t frameMark = FRAME_MARK_DEFAULT;
    BridgeVlans vlans = {};
    Healing healing = Healing::on;
    std::vector<std::string> closed = {};  // patterns of devices that have doors
    std::string bridge = {};
    std::vector<std::string> span = {};  // devices that carry groups to other machines
};

// Lays the table, keeping what stands in one that is there. Returns what went wrong, as a sentence; the plane
// then refuses every command with the kernel's status.
std::string startLinuxPlane(const Plane& plane, const LinuxPlaneStart& start);

// The kernel's name of an interface has changed: what isolates it moves to the new one. 0, or the errno value
// of the kernel's refusal.
int32_t renameLinuxPort(const Plane& plane, uint32_t ifUnit, const std::string& device);

// Which of the devices that lead to other machines are ports of the bridge by now, and what they can.
void setLinuxSpan(const Plane& plane, const SpanDevices& devices);

// The bridge is another, or has changed. A change that cannot be made is reported.
void setLinuxVlans(const Plane& plane, const BridgeVlans& vlans);

// Looks whether the table is still whole; heals it, or reports once when it is not, and once when it is
// again; takes away rules that are not in use any more. Cheap while nothing has changed; to be called about
// once a second, and as soon as others are known to have touched it. `by` says who, where it is known.
void watchLinuxTable(const Plane& plane, const std::string& by = "");
// The port by which the kernel knows the plane's transactions, of a plane that heals what others may do; 0
// when others cannot do anything, or nothing is healed.
uint32_t watchedPort(const Plane& plane);

// The ports, by index and name, that the bridge has by now: the doors of others are not open any more.
void keepLinuxDoors(const Plane& plane, const std::set<std::pair<uint32_t, std::string>>& present);

// A sentence for the operator that stands in every inspection, until an empty one withdraws it by the same
// key.
void setLinuxNote(const Plane& plane, const std::string& key, const std::string& sentence);
