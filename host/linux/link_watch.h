// The task that follows the kernel: it takes the messages of route netlink about the network devices, carries
// them over to the board (host/linux/linux_board.h). When messages were lost, everything is read anew and
// compared, so that no change is.
//
// Thread-safety
// -------------
// The first picture is taken by the task that starts the process, before there is another. From `watch` on,
// the kernel's devices and the subscription belong to the link watcher alone; the board and its plane it
// touches under the board's lock, which it never holds while it waits or publishes. `settle` may be called by
// any task that does not hold that lock: it looks at the subscription only while the link watcher has
// declared that it waits, and the link watcher withdraws that before it takes a message.
#pragma once

#include "host/board/plane_kind.h"

// For a board whose description names a bridge; without one none of its functions does anything.
extern const PortFollower BRIDGE_FOLLOWER;
