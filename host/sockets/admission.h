// Who may be connected to a stream socket when not everybody can be: a user's connections are bounded, and
// all together, with places kept back for root and for the user that the daemon runs as (the privileged), who
// can end the daemon anyway and have no bound of their own. A connection that is idle goes when a newcomer
// needs its place; where nobody is idle, the newcomer is told that there are too many.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "host/sockets/socket_access.h"

struct ConnectionLimits {
    size_t all;
    size_t perUser;        // who is not privileged
    size_t forPrivileged;  // of `all`
    size_t share = 0;      // sixteenths of the descriptors of the process that may be taken; 0: takes none
};

// The limits of the command socket, of each line socket (board and shell), and of the latter's streams and of
// the requests that are carried out at a time. Under the usual limit of 1,024 descriptors nothing is cut
// short by the shares but 20 places at the command socket.
inline constexpr ConnectionLimits COMMAND_LIMITS = {640, 128, 32, 10};
inline constexpr ConnectionLimits LINE_LIMITS = {128, 48, 16, 3};
inline constexpr ConnectionLimits STREAM_LIMITS = {24, 8, 4};
inline constexpr ConnectionLimits WORKER_LIMITS = {16, 8, 4};

// The same with no more than the share of the descriptors that the process may have now.
ConnectionLimits withinDescriptors(const ConnectionLimits& limits);

struct Holder {
    PeerProcess process;
    bool idle;      // has nothing to be done, and may go
    bool spoke;     // sent something at some time
    int64_t since;  // monotonic milliseconds of its last sign of life
};

// A connection that spoke once is idle when nothing has come or gone for so many milliseconds.
inline constexpr int64_t IDLE_AFTER = 100;

// What becomes of a newcomer: it has a place at once, or has none, or gets that of holders[value].
inline constexpr ptrdiff_t PLACE_FREE = -1;
inline constexpr ptrdiff_t PLACE_NONE = -2;

// `crowded`: the system has no descriptor for one more.
ptrdiff_t placeFor(const PeerProcess& newcomer, const std::vector<Holder>& holders,
                   const ConnectionLimits& limits, bool crowded);

// A listening socket and a spare descriptor, by which a newcomer can be answered when no other is left.
struct Door {
    int listener;
    int spare = -1;
    int64_t openAgain = 0;  // monotonic milliseconds before which nobody can be taken
};

struct Newcomer {
    int fd;
    PeerProcess process;
    bool crowded;  // has the spare descriptor: somebody has to go
};

Door openDoor(int listener);
// Takes the next one with access who waits; those without are closed. False when there is none, or no
// descriptor.
bool takeNewcomer(Door& door, Newcomer& newcomer);
// Sends `words` as far as the system takes them at once, closes the connection and has a spare descriptor
// again.
void turnAway(Door& door, int fd, std::string_view words);
// Nothing of what the connection has sent is unread.
bool isSilent(int fd);
