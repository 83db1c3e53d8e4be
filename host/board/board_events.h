// What can happen to the board: interfaces unplugged and plugged, ports joining and leaving trunks, VLANs
// deleted, cards pulled and pushed. Each changes the picture first and then publishes the messages by which
// the daemon learns of it, one at a time, each handled before the next goes out.
//
// All of these return what went wrong, empty for nothing. The board's lock must not be held.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "host/board/board.h"

inline constexpr uint32_t SETTLE_TIMEOUT = 4000;  // milliseconds, less than a client waits

std::string unplugInterface(Board& board, const std::string& name);
std::string plugInterface(Board& board, const std::string& name);
std::string joinTrunkEvent(Board& board, const std::string& trunkName, const std::string& portName);
std::string leaveTrunkEvent(Board& board, const std::string& trunkName, const std::string& portName);
std::string addVlan(Board& board, uint32_t vid, uint32_t number, const std::string& name);
std::string deleteVlan(Board& board, uint32_t vid);
std::string pullCard(Board& board, uint32_t slot);
std::string pushCard(Board& board, uint32_t slot);

// For a change that comes from elsewhere: held through it and its messages. What is above holds it itself.
std::unique_lock<std::mutex> lockChange();

// One attribute of a link message; `member` is 0 for those without a value.
struct LinkAttribute {
    uint16_t type;
    uint32_t member;
};

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
std::string publishRaw(uint32_t group, const std::vector<uint8_t>& messages);
std::string settle();
