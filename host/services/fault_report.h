// Set-up of the process as a whole: what happens on a fault, the dispositions of signals, and the sockets
// through which an operator looks inside.
#pragma once

// Gives the calling thread a stack of its own for the fault handler, so that a fault caused by an exhausted
// stack is reported too. Kept until the process ends.
void prepareFaultStack();
