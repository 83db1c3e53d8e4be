// The route bus: the daemon's route socket as a local datagram socket, and the sending side of it. A datagram
// is the event group it is published to, followed by route messages (platform/route_messages.h). Those to
// groups that the socket has not joined never reach the daemon, nor does one without a message.
//
// A process has one route socket. The bus knows when its reader waits with nothing left to read, which is
// what `settle` waits for: everything published before has then been handled.
#pragma once

#include <cstdint>
#include <vector>

// 0, or an errno value when no reader took the datagram within a bounded time.
int publishToRoute(uint32_t group, const std::vector<uint8_t>& messages);

// True once the reader has consumed everything and waits again; false after `timeout` milliseconds.
bool settleRoute(uint32_t timeout);
