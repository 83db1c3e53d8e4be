// `matrix`: who may talk to whom, as a grid, as JSON or as a picture.
#pragma once

#include "ctl/commands/command.h"

inline constexpr char MATRIX_SIGNATURE[] = "[INTERFACE...] [--vlan VLAN] [--blocked] [--alike] [--svg FILE]";
inline constexpr char MATRIX_DETAILS[] =
    "INTERFACEs: only these, as rows and as columns.\n"
    "--blocked: only interfaces that do not reach all others, or that not all others reach.\n"
    "--alike: one row for all interfaces that may talk to the same others in the same ways, such as those of "
    "one\n"
    "community. What stands where such a row meets its own column holds for any two of its interfaces.";

Exit runMatrix(Session& session, const Invocation& invocation);

Commands matrixCommands();
