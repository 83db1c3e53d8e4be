// Built without libmnl or libnftnl: the line of a description that chooses the Linux plane is refused.
#include "host/planes/sim_plane.h"
#include "host/start/planes.h"

PlaneKinds planeKinds() {
    static constexpr PlaneKind KINDS[] = {
        {.name = "sim", .create = createSimPlane, .follower = nullptr},
        {.name = "linux", .create = nullptr, .follower = nullptr},
    };
    return KINDS;
}
