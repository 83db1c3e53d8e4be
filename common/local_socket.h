// Local sockets by path, as a client and a server share them.
#pragma once

#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <string>

// False for a path that is too long for a local socket.
bool fillLocalAddress(const std::string& path, sockaddr_un& address);

// Connects the unconnected socket `fd` to `path` within `timeout` milliseconds. False with errno set: EAGAIN
// when nobody accepted in time; the socket may be used again.
bool connectTo(int fd, const std::string& path, int64_t timeout);
// A socket of `type` connected to `path` within `timeout` milliseconds, or -1 with errno set: EAGAIN when
// nobody accepted in time.
int connectLocalSocket(const std::string& path, int type, int64_t timeout);

// Writes everything, waiting at most `timeout` milliseconds in all. False with errno set: ETIMEDOUT when the
// other side did not read in time.
bool sendAll(int fd, const void* data, size_t length, int64_t timeout);
