// The event task: waits on the route socket, walks each datagram under the semaphore and hands every message
// to the handler of its type. The attribute walk is here for those handlers.
#pragma once

#include <cstdint>

// Entry of the task; never returns.
void portIsolateTask();

// Walks one datagram of `bytes` bytes and handles its messages; a malformed message ends the walk in silence.
// The caller holds the semaphore. Returns 0.
int32_t portIsolateEvtNotifyRecv(const void* buffer, int32_t bytes);

// Attribute walk. `remaining` is signed: the last attribute may end unaligned, and the step past it goes
// below 0.
bool attrOk(const uint8_t* attribute, int32_t remaining);
const uint8_t* attrNext(const uint8_t* attribute, int32_t& remaining);
const uint8_t* attrData(const uint8_t* attribute);
uint32_t attrGetU32(const uint8_t* attribute);
