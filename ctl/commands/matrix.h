// `matrix`: who may talk to whom, as a grid, as JSON or as a picture.
#pragma once

#include "ctl/commands/command.h"

Exit runMatrix(Session& session, const Invocation& invocation);

Commands matrixCommands();
