#include "lib/interface/exchange.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/local_socket.h"
#include "wire/framing.h"
#include "wire/status.h"

namespace {

// Anybody may make a socket of this name in /tmp. The folder of the daemon's other sockets is its user's, and
// nobody but root could make it.
bool isDaemons(Stream& stream, const std::string& root) {
    const std::optional<ucred> server = processBehind(stream.fd);
    struct stat folder = {};
    if (server && (server->uid == 0 || server->uid == geteuid())) return true;
    const bool owned = stat((root + RUN_FOLDER).c_str(), &folder) == 0;
    if (server && owned && server->uid == folder.st_uid) return true;
    streamClose(stream);
    if (!server) {
        stream.failure = "the kernel does not tell who serves it";
        return false;
    }
    stream.failure = fmt::format(
        "it is served by user {}, who is neither root nor the daemon's user: remove it and restart the "
        "daemon",
        server->uid);
    return false;
}

}  // namespace

bool connectToDaemon(Stream& stream, const std::string& root, int64_t timeoutMs) {
    if (stream.fd >= 0) return true;
    return streamConnect(stream, root + COMMAND_SOCKET_PATH, timeoutMs) && isDaemons(stream, root);
}

std::optional<Reply> commandExchange(Stream& stream, const Request& request, int64_t timeoutMs) {
    const std::string frame = encodeRequest(request);
    if (!streamSend(stream, frame.data(), frame.size(), timeoutMs)) return {};
    const int64_t deadline = deadlineAfter(timeoutMs);
    uint32_t length = 0;
    if (!streamReceiveAll(stream, &length, sizeof(length), deadline)) return {};
    std::string body(length <= COMMAND_FRAME_MAX ? length : 0, '\0');
    if (!body.empty() && !streamReceiveAll(stream, body.data(), body.size(), deadline)) return {};
    std::optional<Reply> reply = decodeReply(body);
    if (!reply) stream.failure = "the answer is malformed";
    // The server has closed it; the next request is worth another attempt.
    if (!reply || reply->status == STATUS_TOO_MANY_CLIENTS) streamClose(stream);
    return reply;
}
