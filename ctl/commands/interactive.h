// Commands one after the other, as they are typed at a terminal.
#pragma once

#include "ctl/text/exit.h"

// Whether there is a terminal to be interactive with.
bool canInteract();
// Until the end of the input or `quit`; answers the last command's exit status.
Exit interact();
