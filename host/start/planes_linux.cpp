#include "host/linux/link_watch.h"
#include "host/linux/linux_plane.h"
#include "host/planes/sim_plane.h"
#include "host/start/planes.h"

PlaneKinds planeKinds() {
    static constexpr PlaneKind KINDS[] = {
        {.name = "sim", .create = createSimPlane, .follower = nullptr},
        {.name = "linux", .create = createLinuxPlane, .follower = &BRIDGE_FOLLOWER},
    };
    return KINDS;
}
