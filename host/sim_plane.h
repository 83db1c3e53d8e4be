// The simulated forwarding plane: keeps the isolations in memory and reasons about traffic as the hardware
// would.
#pragma once

#include "host/plane.h"

struct SimPlane;

// A plane without entries, kept until destroySimPlane.
Plane createSimPlane();
void destroySimPlane(Plane& plane);
