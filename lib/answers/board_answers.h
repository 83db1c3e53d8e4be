// What the board says of itself and of its hardware.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib/link/forward.h"
#include "lib/link/peer.h"
#include "lib/text/listing.h"

// Asks the board anew; ends the command when its answer cannot be read.
std::vector<BoardInterface> listInterfaces(Session& session);
Listing interfaceListing(const std::vector<BoardInterface>& interfaces);

Json forwardAnswer(Session& session, uint32_t from, uint32_t to, uint32_t vlan, const ForwardAnswer& answer);

// The entries of the hardware: the board's lines with names in place of numbers, and as JSON.
struct HardwareEntries {
    std::vector<std::string> lines;
    Json json = Json::array();
};
HardwareEntries readHardware(Session& session);

// Null where no peer board is described.
Json peerAnswer(const PeerLink& link);
