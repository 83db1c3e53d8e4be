// Local sockets by path, as a client and a server share them.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// False for a path that is too long for a local socket.
bool fillLocalAddress(const std::string& path, sockaddr_un& address);

// The address of a socket without a file: its name goes with the process that has it. `name` has 100 bytes at
// most. Answers the size of the address.
socklen_t fillAbstractAddress(std::string_view name, sockaddr_un& address);

// The process that made the other end of a connection, as the kernel knows it; none where it cannot be asked.
std::optional<ucred> processBehind(int fd);

// Connects the unconnected socket `fd` to `path` within `timeout` milliseconds. False with errno set: EAGAIN
// when nobody accepted in time; the socket may be used again.
bool connectTo(int fd, const std::string& path, int64_t timeout);
// A socket of `type` connected to `path` within `timeout` milliseconds, or -1 with errno set: EAGAIN when
// nobody accepted in time.
int connectLocalSocket(const std::string& path, int type, int64_t timeout);

// Writes everything, waiting at most `timeout` milliseconds in all. False with errno set: ETIMEDOUT when the
// other side did not read in time.
bool sendAll(int fd, const void* data, size_t length, int64_t timeout);
