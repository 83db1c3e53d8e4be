// The folder of the daemon's own below its root (RUN_FOLDER in wire/framing.h). It holds the sockets whose
// place is the daemon's to choose, its process id (PID_FILE), and the lock by which a root has one daemon at
// most.
//
// The lock is a record lock of the kernel's: it ends with the process whatever ends it, a child does not
// inherit it, and who asks for it in vain is told by the kernel who has it. Nothing else is touched before it
// is taken, so a second daemon leaves the first as it is; and what lies at the place of a socket then is
// stale.
#pragma once

// Makes the folder where it is missing, takes the lock for as long as the process lives, and writes down the
// process id. False after a report.
bool claimRunFolder();
