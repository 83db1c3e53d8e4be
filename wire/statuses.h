// Platform statuses with which the stand-in answers; the daemon passes them on unchanged.
#pragma once

#include <cstdint>

inline constexpr int32_t HOST_STATUS_NOT_FOUND = 0x03E80002;      // no such interface, card or entry
inline constexpr int32_t HOST_STATUS_NOT_SUPPORTED = 0x03E80010;  // an attribute or command it does not know
inline constexpr int32_t HOST_STATUS_BAD_ARGUMENT = 0x03E80005;   // data missing or of the wrong size
inline constexpr int32_t HOST_STATUS_PEER_FAILED = 0x03E80006;  // the peer board broke off or did not take it
