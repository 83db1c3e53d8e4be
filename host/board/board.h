// The board: the interfaces of the device, its cards, its role and its forwarding plane. The description
// (<root>/etc/portisolate/board.conf) gives what there is; the picture on top of it says what is plugged and
// which port is in which trunk just now. An interface that was unplugged stays described, so that what the
// daemon asks about it while it cleans up is still answered.
//
// Thread-safety
// -------------
// One lock guards the whole record, its plane included. It is never held while a message goes out or a socket
// is served: the daemon asks the board while it handles an event. An interface's address stays good without
// the lock for as long as the interface is in the board, which is for ever but for ports of a bridge that are
// long gone; changes of the picture are made one at a time (lockChange in host/board/board_events.h).
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/board/plane_kind.h"
#include "host/planes/frame_mark.h"
#include "host/planes/healing.h"
#include "host/planes/plane.h"
#include "platform/hardware.h"
#include "wire/records.h"

inline constexpr uint32_t INTERFACE_NAME_MAX = 63;      // characters
inline constexpr uint32_t PEER_TIMEOUT_DEFAULT = 2000;  // milliseconds
inline constexpr size_t DEVICE_NAME_MAX = 15;           // characters of a kernel's name

enum class IfKind : uint8_t { ethernet, pon, trunk, vlan };
enum class Role : uint8_t { single, active, standby };

const char* kindName(IfKind kind);
const char* roleName(Role role);
// False, and `role` untouched, for a name that no role has.
bool parseRole(std::string_view name, Role& role);

struct Interface {
    uint32_t number = 0;
    std::string name;
    IfKind kind = IfKind::ethernet;
    uint32_t slot = 0;
    uint32_t ability = DAX_ABILITY_SYMMETRIC;
    uint32_t vid = 0;                     // of a VLAN interface
    std::string device;                   // the kernel's name of it
    uint32_t index = 0;                   // the kernel's number of it while it is there
    uint32_t life = 0;                    // another number whenever it has come, or got another name or alias
    std::string alias;                    // the text that the kernel keeps beside its name; any bytes
    std::vector<std::string> otherNames;  // the kernel's alternative names, any bytes
    std::string switchId;  // of the chip that forwards between its ports by itself; empty: none
    bool access = false;   // marked as held by the PON isolation of a VLAN, as PON ports are
    bool present = true;
    bool gone = false;              // for good: only what is left of it in the tables is still answered for
    bool protocol = false;          // the isolation protocol is enabled on it
    uint32_t trunk = 0;             // the trunk that it is a member of, 0: none
    uint32_t formerTrunk = 0;       // the trunk to join again when it is plugged back
    std::vector<uint32_t> members;  // of a trunk, in the order of joining
};

struct Board {
    std::mutex lock;  // guards everything below

    Role role = Role::single;
    std::string peerRoot;  // below this board's own root unless absolute; empty: no peer
    uint32_t peerTimeout = PEER_TIMEOUT_DEFAULT;
    std::string journalFile;  // below the root prefix; empty: none
    Plane plane = {};
    const PortFollower* follower = nullptr;   // of a board with a bridge; set before there are other tasks
    std::string bridge;                       // whose ports are the interfaces; empty: they are simulated
    std::set<std::string> accessDevices;      // marked as access, described or not
    uint32_t frameMark = FRAME_MARK_DEFAULT;  // the bits of a frame's mark that a plane may use
    Healing healing = Healing::on;            // what becomes of a plane that others change
    std::vector<std::string> closed;          // patterns of devices whose doors begin closed
    std::vector<std::string> span;            // devices that carry groups to other machines
    SpanningGroups spanning = SPANNING_ALL;   // those that mean the same there

    std::map<uint32_t, Interface>
        interfaces;  // by number; entries are never removed, so their addresses last
    std::unordered_map<std::string, uint32_t> numbers;  // by name
    std::map<uint32_t, std::vector<uint32_t>> pulled;   // slot: the ports that went with the card
    std::set<uint32_t> protocolVlans;
    uint32_t mode = 0;
    uint32_t lives = 0;  // the last number of one

    int64_t started = 0;      // milliseconds of the system's clock
    bool laboratory = false;  // on a bridge: faults and forged events are taken
    uint32_t rejected = 0;    // lines of the description that were reported
};

// The lock is held for all that follows.

// The root below which the peer board keeps its files; empty without a peer.
std::string peerPath(const Board& board);

// Null when there is no interface of this number.
Interface* findInterface(Board& board, uint32_t number);
// By name, else by number; null when there is neither.
Interface* findInterface(Board& board, const std::string& nameOrNumber);
// The interface of this VLAN, plugged or not; null for none.
Interface* findVlan(Board& board, uint32_t vid);
// What is wrong with the new interface, or nothing after adding it.
std::string addInterface(Board& board, const Interface& interface);
// What is wrong with the two, or nothing after the port has become the trunk's last member.
std::string joinTrunk(Interface& trunk, Interface& port);
void leaveTrunk(Interface& trunk, Interface& port);
// Slots of the cards that are in the device.
std::set<uint32_t> presentSlots(const Board& board);
// The slot of the interface's card; of a trunk without one of its own that of its first member, 0 when it has
// none.
uint32_t slotOf(Board& board, const Interface& interface);
bool isPort(const Interface& interface);
// Whether the PON isolation of a VLAN holds the interface.
bool isAccess(const Interface& interface);
// Whether it carries groups to other machines.
bool isSpan(const Board& board, const Interface& interface);
// The kernel's name of it, which is its own unless the description says otherwise.
const std::string& deviceOf(const Interface& interface);
// What the plane needs to know of it. Points into the board: good for as long as the lock is held.
PlanePort planePort(Board& board, const Interface& interface);

enum class Forwarding : uint8_t { yes, no, partly };
// Whether traffic of a VLAN (0: of no particular one) passes from one interface to the other. Traffic of a
// trunk runs over its member ports, so it may pass in part. `reason` says why not, for the first way that is
// blocked; empty when all are open.
Forwarding boardForwards(Board& board, const Interface& src, const Interface& dst, uint32_t vid,
                         std::string& reason);
// The same for what a member of these groups sends on another machine. A member port of a trunk gets what the
// trunk gets.
Forwarding remoteForwards(Board& board, SpanningGroups groups, const Interface& dst, uint32_t vid,
                          std::string& reason);
