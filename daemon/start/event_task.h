// The event task: waits on the route socket, walks each datagram under the semaphore and hands every message
// to the handler of its type (rules/lifecycle.h and hw/serial_transfer.h).
//
// The walk
//
// Lengths come from outside and are believed only within the datagram: a message shorter than its header, or
// longer than what is left, ends the walk in silence; what came before it has been handled. The bytes that
// are left are counted with a sign, since the last message may end unaligned and the step past it goes below
// 0. A handler of link messages gets the bytes up to the end of the datagram, whatever the message's own
// length says; the walk over its attributes (base/route_attributes.h) ends with the message.
//
// Thread-safety
//
// The task holds the semaphore for one whole datagram, so that no request sees half of what it says, and
// never while it waits for one. A handler must not take it again.
#pragma once

#include <cstdint>

// Entry of the task; never returns.
void portIsolateTask();

// Walks one datagram of `bytes` bytes and handles its messages; a malformed message ends the walk in silence.
// The caller holds the semaphore. Returns 0.
int32_t portIsolateEvtNotifyRecv(const void* buffer, int32_t bytes);
