// The matrix as a picture that stands on its own: light or dark as its reader's screen, with a legend.
#pragma once

#include <string>

#include "lib/link/matrix.h"

std::string matrixSvg(const Matrix& matrix);
