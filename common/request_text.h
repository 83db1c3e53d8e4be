// A request of the command socket: in words, and what it takes away.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/row_families.h"

// "group 5, ge1/1: create" for the bytes of a request behind its length word.
std::string requestText(const InterfaceNamer& nameOf, std::string_view frame);

// A request taken apart. Its words are "create", "activate", "probe", "destroy", "on", "off", "set", "get",
// "get first", "get next", or "unreadable", and then there is nothing else.
struct RequestParts {
    const char* operation = "";
    const char* object = "";            // as an operator calls it: group, pair, vlan-group, pon, scalar
    const RowFamily* family = nullptr;  // of the next two; null: they are not there
    RowScope scope{};
    uint32_t member = 0;
    uint32_t vlan = 0;    // of pon
    uint32_t scalar = 0;  // of scalar
    std::optional<uint32_t> value{};
    bool fromPeer = false;
};
RequestParts requestParts(std::string_view frame);
// Whether it sets something. A probe does not, nor does what cannot be read.
bool requestSets(std::string_view frame);

// What is to run no more once such a request was carried out: a row, or the PON isolation of a VLAN switched
// off.
struct Withdrawal {
    const RowFamily* family = nullptr;  // null: it is the VLAN
    RowScope scope{};
    uint32_t member = 0;
    uint32_t vlan = 0;
};
std::optional<Withdrawal> withdrawnBy(std::string_view frame);
