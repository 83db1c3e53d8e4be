// The simulated forwarding plane: keeps the isolations in memory and reasons about traffic as the hardware
// would.
#pragma once

#include "host/planes/plane.h"

// A plane without entries, with PON isolation on everywhere.
Plane createSimPlane();
