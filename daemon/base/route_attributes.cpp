#include "daemon/base/route_attributes.h"

#include <cstring>

#include "platform/route_messages.h"

namespace {

RtAttr attrHeader(const uint8_t* attribute) {
    RtAttr header;
    std::memcpy(&header, attribute, sizeof(header));
    return header;
}

}  // namespace

bool attrOk(const uint8_t* attribute, int32_t remaining) {
    if (remaining < static_cast<int32_t>(sizeof(RtAttr))) return false;
    const RtAttr header = attrHeader(attribute);
    return header.length >= sizeof(RtAttr) && header.length <= remaining;
}

const uint8_t* attrNext(const uint8_t* attribute, int32_t& remaining) {
    const uint32_t step = rtAligned(attrHeader(attribute).length);
    remaining -= static_cast<int32_t>(step);
    return attribute + step;
}

const uint8_t* attrData(const uint8_t* attribute) {
    return attribute + sizeof(RtAttr);
}

uint32_t attrGetU32(const uint8_t* attribute) {
    uint32_t value = 0;
    std::memcpy(&value, attrData(attribute), sizeof(value));
    return value;
}
