// `board`: what an operator does with the board itself.
#pragma once

#include "ctl/commands/command.h"

Commands boardCommands();
