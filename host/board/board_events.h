// What can happen to the board: interfaces unplugged and plugged, ports joining and leaving trunks, VLANs
// added and deleted, cards pulled and pushed. Each changes the picture first and then publishes the messages
// by which the daemon learns of it, one at a time, each handled before the next goes out.
//
// All of these return what went wrong, empty for nothing. A change is carried through to its end even when
// the daemon is late with a message.
//
// Thread-safety
// -------------
// Any task but the one that reads the route socket may call these; the board's lock must not be held. Changes
// of the picture exclude one another from their first look at the board to their last message.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "host/board/board.h"

inline constexpr uint32_t SETTLE_TIMEOUT = 4000;  // milliseconds, less than a client waits

// Interfaces by name or number. An interface that leaves takes its place in its trunk along, and takes it
// again when it comes back.
std::string unplugInterface(Board& board, const std::string& name);
std::string plugInterface(Board& board, const std::string& name);
std::string joinTrunkEvent(Board& board, const std::string& trunkName, const std::string& portName);
std::string leaveTrunkEvent(Board& board, const std::string& trunkName, const std::string& portName);
// A VLAN interface that was deleted may be added again under its own number and name only.
std::string addVlan(Board& board, uint32_t vid, uint32_t number, const std::string& name);
std::string deleteVlan(Board& board, uint32_t vid);
// A card with all ports of its slot; it comes back fresh, with PON isolation on in every VLAN.
std::string pullCard(Board& board, uint32_t slot);
std::string pushCard(Board& board, uint32_t slot);

// For a change that comes from elsewhere, to be held through it and its messages. The functions above hold it
// themselves.
std::unique_lock<std::mutex> lockChange();

// One attribute of a link message; `member` is 0 for those without a value.
struct LinkAttribute {
    uint16_t type;
    uint32_t member;
};

// Messages about an interface of the board, or about a copy of one. They change nothing on the board.
std::string publishNewLink(const Interface& interface, uint32_t changeMask,
                           const std::vector<LinkAttribute>& attributes);
std::string publishDelLink(const Interface& interface);
// That a port has joined, or left, a trunk.
std::string publishJoin(const Interface& trunk, const Interface& port);
std::string publishLeave(const Interface& trunk, const Interface& port);
std::string publishInterfaceReset(const Interface& interface);
std::string publishCardUp(uint32_t slot);
// A message without payload: reset, mode refresh, serial table.
std::string publishPlain(uint32_t group, uint16_t type);
// Any bytes as the messages of one datagram.
std::string publishRaw(uint32_t group, const std::vector<uint8_t>& messages);
// Waits until the daemon has handled everything published so far.
std::string settle();
