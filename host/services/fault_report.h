// Faults of the process and the dispositions of its signals: silCatchSegFault and patchSignalHandler of
// platform/services.h, and what each task adds to them.
//
// A fault (SIGSEGV, SIGBUS, SIGFPE, SIGILL) is reported on standard error with the task, the address and a
// backtrace, and then ends the process as it would have without the report.
#pragma once

// Gives the calling thread a stack of its own for the fault handler, so that a fault caused by an exhausted
// stack is reported too. To be called once, as the thread starts; the stack (64 KiB, resident only in use) is
// kept until the process ends. A build with a sanitizer leaves faults to it.
void prepareFaultStack();
