// The route bus: the daemon's route socket as a local datagram socket, and the sending side of it. A datagram
// is the event group it is published to, followed by route messages (platform/route_messages.h). Datagrams to
// groups that the socket has not joined never reach the daemon, nor does one without a message.
//
// Settling
// --------
// A process has one route socket. The bus knows when its reader waits with nothing left to read: everything
// that was published before has then been handled. A reader that takes a datagram is marked as busy before it
// takes it, so there is no moment at which a datagram is neither in the socket nor being handled.
//
// What follows events
// -------------------
// Work that is to be done behind events is done by the reader's task before it waits again, and is part of
// settling. While more arrives it is put off, but not for long.
//
// Thread-safety
// -------------
// One task reads (dax_select and dax_recvfrom of platform/services.h); any task may publish and wait. The
// reader asks the board while it handles an event, so a task that waits for the reader must not hold the
// board's lock.
#pragma once

#include <cstdint>
#include <vector>

// 0, or an errno value: EAGAIN when the reader had no room for the datagram within 5 seconds.
int publishToRoute(uint32_t group, const std::vector<uint8_t>& messages);

// True once the reader has handled everything and waits again, or when there is none; false after `timeout`
// milliseconds.
bool settleRoute(uint32_t timeout);

// `work` runs in the reader's task behind the events that it has handled, with no lock held. It throws
// nothing. Called once, before there are other tasks.
void afterEvents(void (*work)());
