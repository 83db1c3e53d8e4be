// Every status that a request may be answered with and that has a meaning here: 0 for success, one of these,
// or what a call of the platform answered, unchanged. 0x03E8xxxx are the platform's common codes, 0x03EBxxxx
// the daemon's own. Not all come from the daemon: the command server answers what reaches no handler, and a
// platform answers its calls with common codes.
#pragma once

#include <cstdint>

inline constexpr int32_t STATUS_OK = 0;
inline constexpr int32_t STATUS_FAILED = -1;  // a local resource ran out, a look-up failed
inline constexpr int32_t STATUS_NULL_ARGUMENT = 22;
inline constexpr int32_t STATUS_BUFFER_TOO_SMALL = 122;

// Common codes.
inline constexpr int32_t STATUS_POOL_EXHAUSTED = 0x03E80001;
inline constexpr int32_t STATUS_NOT_FOUND = 0x03E80002;    // also: no further matching row; group table full
inline constexpr int32_t STATUS_NO_HANDLER = 0x03E80003;   // opcode 0 or beyond the operation table
inline constexpr int32_t STATUS_BAD_FRAME = 0x03E80004;    // lengths inside the request do not add up
inline constexpr int32_t STATUS_BAD_LENGTH = 0x03E80005;   // an index, value or data block of the wrong size
inline constexpr int32_t STATUS_PEER_FAILED = 0x03E80006;  // the peer board broke off or took too long
inline constexpr int32_t STATUS_TOO_MANY_CLIENTS = 0x03E80007;  // no place is left, or another needs it
inline constexpr int32_t STATUS_READ_ONLY = 0x03E80008;         // the client may read and not change
inline constexpr int32_t STATUS_NOT_SUPPORTED = 0x03E80010;     // column, scalar id, row status; a basic rule
inline constexpr int32_t STATUS_BAD_BUFFER = 0x03E8001A;        // none was offered, or it is too small
inline constexpr int32_t STATUS_BAD_VLAN = 0x03E8002A;

// Codes of the daemon.
inline constexpr int32_t STATUS_PAIR_IN_GROUP = 0x03EB0001;      // a member has a one-way pair with it
inline constexpr int32_t STATUS_GROUP_FULL = 0x03EB0002;         // also: the source's pairs are used up
inline constexpr int32_t STATUS_PAIR_SHARES_GROUP = 0x03EB0003;  // source and target share a group
inline constexpr int32_t STATUS_ABILITY_ONE_GROUP = 0x03EB0004;  // restricted hardware, in another group
inline constexpr int32_t STATUS_MODE_IN_USE = 0x03EB0005;        // the mode is fixed while tables hold rows
inline constexpr int32_t STATUS_PAIR_NOT_IN_MODE = 0x03EB0006;   // target of restricted hardware in mode 1
inline constexpr int32_t STATUS_GROUP_OTHER_VLAN = 0x03EB0007;   // the number serves another VLAN
inline constexpr int32_t STATUS_NUMBER_IS_GROUP = 0x03EB0008;    // the number serves a plain group
inline constexpr int32_t STATUS_NUMBER_IS_VLAN_GROUP = 0x03EB0009;  // the number serves a VLAN group
inline constexpr int32_t STATUS_OTHER_SLOT = 0x03EB000A;
inline constexpr int32_t STATUS_OTHER_GROUP = 0x03EB000B;  // one group per interface
