// A stream socket to one of the daemon's local sockets, with every wait bounded by a deadline. A stream that
// failed says why in `failure` and stays closed; nothing here prints.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

struct Stream {
    int fd = -1;
    std::string failure;
};

// A point in time on the monotonic clock, in milliseconds.
inline constexpr int64_t DEADLINE_NEVER = -1;
int64_t deadlineAfter(int64_t milliseconds);

// Both take at most `timeoutMs`; false on failure.
bool streamConnect(Stream& stream, const std::string& path, int64_t timeoutMs);
bool streamSend(Stream& stream, const void* bytes, size_t length, int64_t timeoutMs);
// Bytes received, 0 at the end of the stream, -1 on failure.
ssize_t streamReceive(Stream& stream, void* buffer, size_t size, int64_t deadline);
// Fills the whole buffer; false when the stream fails or ends before that.
bool streamReceiveAll(Stream& stream, void* buffer, size_t size, int64_t deadline);
void streamClose(Stream& stream);
