// The network devices of the kernel, as its route netlink tells of them: messages read into plain records, a
// dump of all devices, and a subscription to what happens to them. Nothing here knows of bridges' ports or of
// the board. Foreign bytes are read through libmnl's checks only; a message that does not hold what it should
// is passed over.
//
// A subscription loses messages when they come faster than they are taken. Whoever subscribes first, dumps
// then and takes the messages after that has seen everything: a message tells a device's whole state, so one
// that the dump already covered changes nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

struct mnl_socket;

struct KernelLink {
    std::string name;
    std::string kind;  // as in `ip link add type KIND`; empty: hardware
    uint32_t master = 0;
    uint32_t lower = 0;         // the device that this one lies on; 0: none in this network namespace
    uint32_t vlanId = 0;        // of an 802.1Q device
    std::string switchId;       // of the chip that forwards between its ports by itself, in hexadecimal
    bool filtersVlans = false;  // of a bridge

    bool operator==(const KernelLink&) const = default;
};

using KernelLinks = std::map<uint32_t, KernelLink>;  // by the kernel's index
// The last state of each device that something was said about; none for one that is gone.
using LinkChanges = std::map<uint32_t, std::optional<KernelLink>>;

// Null when there is none.
const KernelLink* linkAt(const KernelLinks& links, uint32_t index);
bool isTrunkDevice(const KernelLink& link);
bool isBridgeDevice(const KernelLink& link);

LinkChanges linkDifferences(const KernelLinks& before, const KernelLinks& after);

// Reads the messages of a datagram, whose memory starts and ends at a multiple of 4 bytes. False when it
// tells of a failure.
bool readLinkMessages(const void* datagram, size_t length, LinkChanges& changes);

// The following return null or false with errno set.

mnl_socket* openLinkEvents();
void closeLinkEvents(mnl_socket* events);  // null is fine
// Whether something has arrived within so many milliseconds.
bool awaitLinkEvents(mnl_socket* events, int timeout);
// Takes what has arrived. False: messages were lost.
bool takeLinkEvents(mnl_socket* events, LinkChanges& changes);
bool dumpLinks(KernelLinks& links);

// The VLANs whose frames leave each port of a bridge untagged, by the kernel's index of the port.
using UntaggedVlans = std::map<uint32_t, std::vector<uint16_t>>;
bool dumpUntaggedVlans(uint32_t bridge, UntaggedVlans& vlans);
