// The network devices of the kernel, as its route netlink describes them: messages read into plain records, a
// dump of all devices, and a subscription to what happens to them. Nothing here knows of a bridge's ports or
// of the board. Foreign bytes are read through libmnl's checks only; a message that does not hold what it
// should is passed over.
//
// Completeness
// ------------
// A subscription loses messages when they come faster than they are taken. To miss nothing, subscribe first,
// then dump, then take the messages: each holds a device's whole state, so one that the dump has covered
// changes nothing.
//
// Thread-safety
// -------------
// A subscription is one task's. The dumps and the reading of messages keep nothing between two calls.
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
    std::string alias;                    // any bytes
    std::vector<std::string> otherNames;  // alternative ones, any bytes
    std::string kind;                     // as in `ip link add type KIND`; empty: hardware
    uint32_t master = 0;
    uint32_t lower = 0;         // the device that this one lies on; 0: none in this network namespace
    uint32_t vlanId = 0;        // of an 802.1Q device
    std::string switchId;       // of the chip that forwards between its ports by itself, in hexadecimal
    bool filtersVlans = false;  // of a bridge
    bool xdp = false;           // a program handles its frames before the bridge does
    bool groupPolicy = false;   // a vxlan device that takes 16 bits of a frame's mark along
    uint16_t vlanProtocol = 0;  // of a bridge: the type of the tags that it knows

    bool operator==(const KernelLink&) const = default;
};

using KernelLinks = std::map<uint32_t, KernelLink>;  // by the kernel's index
// The last state of each device that a message was about; none for one that is gone.
using LinkChanges = std::map<uint32_t, std::optional<KernelLink>>;

// Null when there is none.
const KernelLink* linkAt(const KernelLinks& links, uint32_t index);
bool isTrunkDevice(const KernelLink& link);
bool isBridgeDevice(const KernelLink& link);

// What turns the one picture into the other.
LinkChanges linkDifferences(const KernelLinks& before, const KernelLinks& after);

// Adds what the messages of a datagram say to `changes`. The datagram starts at a multiple of 4 bytes, and
// its memory goes on to the next one behind it. False when it reports a failure.
bool readLinkMessages(const void* datagram, size_t length, LinkChanges& changes);

// The following return null or false with errno set.

// A subscription.
mnl_socket* openLinkEvents();
void closeLinkEvents(mnl_socket* events);  // null is fine
// Whether something has arrived within so many milliseconds.
bool awaitLinkEvents(mnl_socket* events, int timeout);
// Adds what has arrived to `changes`. False: messages were lost.
bool takeLinkEvents(mnl_socket* events, LinkChanges& changes);
// All devices there are; `links` is replaced.
bool dumpLinks(KernelLinks& links);
// A subscription and all devices at its time: what happens to them from then on waits in it.
mnl_socket* pictureLinks(KernelLinks& links);
