#include "lib/link/client.h"

#include <algorithm>
#include <climits>
#include <new>

portisolate_connection* connectionOf(DaemonLink& link, const std::string& root, int64_t timeoutMs) {
    if (link.connection == nullptr) {
        const auto timeout = static_cast<int>(std::clamp<int64_t>(timeoutMs, 1, INT_MAX));
        link.connection.reset(portisolate_new(root.c_str(), timeout), portisolate_free);
        if (link.connection == nullptr) throw std::bad_alloc();
    }
    return link.connection.get();
}

std::optional<Reply> commandExchange(DaemonLink& link, const std::string& root, const Request& request,
                                     int64_t timeoutMs) {
    portisolate_connection* connection = connectionOf(link, root, timeoutMs);
    Reply reply;
    const int result = portisolate_request(connection, request.opcode, request.column, request.index.data(),
                                           request.index.size(), request.value.data(), request.value.size(),
                                           request.capacity, &reply.status);
    if (result != PORTISOLATE_OK) {
        link.failure = portisolate_reason(connection);
        return std::nullopt;
    }
    size_t size = 0;
    const void* index = portisolate_reply_index(connection, &size);
    reply.index.assign(static_cast<const char*>(index), size);
    const void* value = portisolate_reply_value(connection, &size);
    reply.value.assign(static_cast<const char*>(value), size);
    return reply;
}
