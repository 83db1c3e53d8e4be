// The bits of a frame's mark in which a plane notes the frame's VLAN: MARK_BITS bits side by side, which the
// description may choose. They hold the number of the VLAN if something holds or is off in it by itself, a
// value for all other VLANs, and one for a frame whose VLAN the kernel cannot tell. 0: it is of no VLAN.
#pragma once

#include <bit>
#include <cstdint>

inline constexpr int MARK_BITS = 13;
inline constexpr uint32_t FRAME_MARK_DEFAULT = 0xfff80000;

inline bool isFrameMark(uint32_t mask) {
    return std::popcount(mask) == MARK_BITS && std::bit_width(mask >> std::countr_zero(mask)) == MARK_BITS;
}
inline uint32_t markOfVlan(uint32_t mask, uint16_t vid) {
    return static_cast<uint32_t>(vid) << std::countr_zero(mask);
}
inline uint16_t vlanOfMark(uint32_t mask, uint32_t mark) {
    return static_cast<uint16_t>((mark & mask) >> std::countr_zero(mask));
}
inline uint32_t markOfOthers(uint32_t mask) {
    return mask & ~(mask >> 1);
}
inline uint32_t markOfUnknown(uint32_t mask) {
    return mask;
}
