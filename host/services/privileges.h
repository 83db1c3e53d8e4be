// The privileges of the process: whoever started it, it keeps those that the Linux plane (CAP_NET_ADMIN) and
// its own sockets and files need (CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_FOWNER), as far as it has them, and can
// gain none.
#pragma once

// To be called before there are other tasks, which inherit what is left. False after a report.
bool dropPrivileges();
