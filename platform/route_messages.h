// Messages of the route socket, as the platform publishes them. All fields in the host's byte order, all
// lengths in bytes. A datagram holds messages back to back, each starting at a multiple of RT_ALIGN bytes; a
// message is a header, a payload and, for link messages, attributes, each again starting at a multiple of
// RT_ALIGN bytes. The last message and the last attribute may end anywhere. Lengths are the sender's claim: a
// reader checks them against what has arrived.
#pragma once

#include <cstddef>
#include <cstdint>

struct RtMsgHdr {
    uint32_t length;  // of the whole message, header included
    uint16_t type;
    uint8_t opaque[18];
};

struct RtIfInfo {
    uint32_t opaque1;
    uint32_t ifUnit;
    uint32_t opaque2;
    uint32_t changeMask;  // RT_CHANGE_REGISTER: a new interface
    uint8_t opaque3[8];
};

struct RtAttr {
    uint16_t length;  // header included
    uint16_t type;
};

// Identifies a card; handed on unchanged.
struct RtCardInfo {
    uint32_t words[4];
};

static_assert(sizeof(RtMsgHdr) == 24 && offsetof(RtMsgHdr, length) == 0 && offsetof(RtMsgHdr, type) == 4 &&
              offsetof(RtMsgHdr, opaque) == 6);
static_assert(sizeof(RtIfInfo) == 24 && offsetof(RtIfInfo, ifUnit) == 4 &&
              offsetof(RtIfInfo, changeMask) == 12);
static_assert(sizeof(RtAttr) == 4 && offsetof(RtAttr, length) == 0 && offsetof(RtAttr, type) == 2);
static_assert(sizeof(RtCardInfo) == 16);

inline constexpr uint32_t RT_ALIGN = 4;
// The bytes that a message or an attribute of `length` bytes takes up, those up to the next one included.
constexpr uint32_t rtAligned(uint32_t length) {
    return (length + RT_ALIGN - 1) / RT_ALIGN * RT_ALIGN;
}
inline constexpr uint32_t RT_MSG_MAX = 3840;  // bytes of a datagram
inline constexpr uint32_t RT_CHANGE_REGISTER = 0xFFFFFFFF;

// Message types and what their payload is.
inline constexpr uint16_t DAX_RTM_NEWLINK = 32;        // RtIfInfo, attributes
inline constexpr uint16_t DAX_RTM_DELLINK = 34;        // RtIfInfo
inline constexpr uint16_t DAX_RTM_CARD_UP = 97;        // RtCardInfo
inline constexpr uint16_t DAX_RTM_MODE_REFRESH = 108;  // nothing
inline constexpr uint16_t DAX_RTM_SERIAL_SYNC = 120;   // nothing
inline constexpr uint16_t DAX_RTM_IF_RESET = 324;      // RtIfInfo up to its ifUnit, at least
inline constexpr uint16_t DAX_RTM_RESET = 360;         // nothing

// Attributes of DAX_RTM_NEWLINK.
inline constexpr uint16_t DAX_RTA_TRUNK_JOIN = 52;  // the interface has joined a trunk
inline constexpr uint16_t DAX_RTA_MEMBER_ADD = 66;  // u32: port that the trunk gained
inline constexpr uint16_t DAX_RTA_MEMBER_DEL = 67;  // u32: port that the trunk lost

// Event groups that a socket may join.
inline constexpr uint32_t DAX_RTGRP_LINK = 1;
inline constexpr uint32_t DAX_RTGRP_CARD = 33;
inline constexpr uint32_t DAX_RTGRP_SLOT = 34;
inline constexpr uint32_t DAX_RTGRP_SYSTEM = 35;
inline constexpr uint32_t DAX_RTGRP_SYSTEM_GROUP = 42;
inline constexpr uint32_t DAX_RTGRP_VLAN = 85;

// Socket family and options.
inline constexpr int32_t DAX_AF_ROUTE = 16;
inline constexpr int32_t DAX_SOCK_DGRAM = 2;
inline constexpr int32_t DAX_SOL_MEMBERSHIP = 270;
inline constexpr int32_t DAX_SO_ADD_GROUP = 1;
inline constexpr int32_t DAX_SOL_SOCKET = 65535;
inline constexpr int32_t DAX_SO_NAME = 4121;
inline constexpr uint32_t DAX_ROUTE_ADDRESS_LEN = 12;
