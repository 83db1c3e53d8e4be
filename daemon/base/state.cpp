#include "daemon/base/state.h"

PortIsoInfo gPortIsoInfo;

namespace {

constexpr uint8_t bitMask(uint32_t n) {
    return static_cast<uint8_t>(0x80u >> (n % 8));
}

// The first `bits` mod 8 bits of the partial byte at the end of a list.
uint8_t partialByte(const uint8_t* list, uint32_t bits) {
    return static_cast<uint8_t>(list[bits / 8] & ~(0xFFu >> (bits % 8)));
}

uint32_t lastInByte(uint8_t byte, uint32_t index) {
    uint32_t shift = 0;
    while ((byte >> shift & 1) == 0) ++shift;
    return index * 8 + 8 - shift;
}

}  // namespace

void bitListSet(uint8_t* list, uint32_t n) {
    list[n / 8] = static_cast<uint8_t>(list[n / 8] | bitMask(n));
}

void bitListClear(uint8_t* list, uint32_t n) {
    list[n / 8] = static_cast<uint8_t>(list[n / 8] & ~bitMask(n));
}

int32_t bitListTest(const uint8_t* list, uint32_t n) {
    return (list[n / 8] & bitMask(n)) != 0 ? 1 : 0;
}

int32_t bitListIsEmpty(const uint8_t* list, uint32_t bits) {
    for (uint32_t i = 0; i < bits / 8; ++i) {
        if (list[i] != 0) return 0;
    }
    return bits % 8 == 0 || partialByte(list, bits) == 0 ? 1 : 0;
}

uint32_t bitListLast(const uint8_t* list, uint32_t bits) {
    if (bits % 8 != 0) {
        const uint8_t partial = partialByte(list, bits);
        if (partial != 0) return lastInByte(partial, bits / 8);
    }
    for (uint32_t i = bits / 8; i > 0; --i) {
        if (list[i - 1] != 0) return lastInByte(list[i - 1], i - 1);
    }
    return 0;
}

void portIsolateP2pVlanLenUpdate() {
    gPortIsoInfo.p2pEnableVlanLen = (bitListLast(gPortIsoInfo.p2pEnableVlan, VLAN_COUNT) + 7) / 8;
}
