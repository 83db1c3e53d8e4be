// Local sockets by path. Every path of the system lies below the root prefix (wire/framing.h), so that
// several boards run side by side on one machine.
//
// A server's socket belongs to its owner alone from the first moment it can be seen, and is widened to the
// group that may use it (host/sockets/socket_access.h) before anybody is served. One that a dead process left
// behind is replaced; one that still answers is left alone. Who replaces holds a lock on the folder
// meanwhile, so two processes that start together cannot take each other's fresh socket for a stale one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

std::string rootPrefix();
std::string rootedPath(const char* path);

// Binds `fd` to `path` (a stream socket listens at once). 0, or an errno value after a report on standard
// error.
int bindLocalSocket(int fd, const std::string& path);
// A listening stream socket, or -1 after a report.
int listenLocalSocket(const std::string& path);
// A socket of `type` connected to `path` within `timeout` milliseconds, or -1 with errno set.
int connectLocalSocket(const std::string& path, int type, uint32_t timeout);

// Writes everything, waiting at most `timeout` milliseconds in all; false when the other side is gone or
// slow.
bool sendAll(int fd, const void* data, size_t length, uint32_t timeout);

int64_t monotonicMs();
