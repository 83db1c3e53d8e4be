// The serving end of local sockets by path.
//
// A server's socket belongs to its owner alone from the first moment it can be seen, and is widened to the
// groups that may use it (host/sockets/socket_access.h) before anybody is served. A socket that a dead
// process left behind is replaced; one that still answers is left alone. The caller holds the lock of the run
// folder (host/sockets/run_folder.h), so the fresh socket of another daemon is never taken for a stale one.
#pragma once

#include <string>

// Binds `fd`, a socket of the local family, to `path`; a stream socket listens at once. 0, or an errno value
// after a report: EADDRINUSE when another process serves the path, EEXIST when it is no socket, ENAMETOOLONG.
int bindLocalSocket(int fd, const std::string& path);
// A listening stream socket that does not block, or -1 after a report.
int listenLocalSocket(const std::string& path);
