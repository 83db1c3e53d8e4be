// The attributes of a link message, which lie back to back behind its payload: how to walk over them and what
// they hold.
//
//   for (attribute = first; attrOk(attribute, remaining); attribute = attrNext(attribute, remaining)) ...
//
// `remaining` counts the bytes from `attribute` to the end of what may be read, and is signed: the last
// attribute may end unaligned, and the step past it then goes below 0, which ends the walk. An address need
// not be aligned. No state is read or changed, so that nothing need be held.
#pragma once

#include <cstdint>

// Whether an attribute lies there whole. The others may be asked about such an attribute only.
bool attrOk(const uint8_t* attribute, int32_t remaining);
// The address of the attribute that follows; takes the step from `remaining`.
const uint8_t* attrNext(const uint8_t* attribute, int32_t& remaining);
// The first byte behind the attribute's header.
const uint8_t* attrData(const uint8_t* attribute);
// The u32 at the start of the data, which the caller has seen to be that long.
uint32_t attrGetU32(const uint8_t* attribute);
