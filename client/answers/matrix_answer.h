// Who may talk to whom, as JSON.
#pragma once

#include "client/link/matrix.h"
#include "client/text/listing.h"

Json matrixAnswer(const Matrix& matrix, bool simulated);
