// Who may talk to whom, as JSON.
#pragma once

#include "lib/link/matrix.h"
#include "lib/text/listing.h"

Json matrixAnswer(const Matrix& matrix, bool simulated);
