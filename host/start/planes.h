// The forwarding planes that this program was built with: the simulated one, and that of the kernel's bridges
// where its libraries are (planes_linux.cpp, else planes_simulated.cpp).
#pragma once

#include "host/board/plane_kind.h"

PlaneKinds planeKinds();
