#include "client/link/client.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/local_socket.h"
#include "wire/framing.h"
#include "wire/status.h"

namespace {

constexpr size_t REPLY_MIN = 3 * WORD_SIZE;  // status and two lengths

// Takes a length word and as many bytes off the front of `rest`.
bool takeBlock(std::string_view& rest, std::string& block) {
    if (rest.size() < WORD_SIZE) return false;
    const uint32_t length = wordAt(rest, 0);
    rest.remove_prefix(WORD_SIZE);
    if (length > rest.size()) return false;
    block.assign(rest.substr(0, length));
    rest.remove_prefix(length);
    return true;
}

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

bool connectToDaemon(Stream& stream, const std::string& root, int64_t timeoutMs) {
    if (stream.fd >= 0) return true;
    return streamConnect(stream, root + COMMAND_SOCKET_PATH, timeoutMs) && isDaemons(stream, root);
}

}  // namespace

std::string wordBytes(uint32_t word) {
    std::string bytes;
    appendWord(bytes, word);
    return bytes;
}

std::string encodeRequest(const Request& request) {
    std::string body;
    appendWord(body, request.opcode);
    appendWord(body, request.column);
    appendWord(body, static_cast<uint32_t>(request.index.size()));
    body += request.index;
    appendWord(body, request.value.empty() ? request.capacity : static_cast<uint32_t>(request.value.size()));
    body += request.value;
    std::string frame;
    appendWord(frame, static_cast<uint32_t>(body.size()));
    return frame + body;
}

std::optional<Reply> decodeReply(std::string_view body) {
    Reply reply;
    if (body.size() < REPLY_MIN) return std::nullopt;
    reply.status = static_cast<int32_t>(wordAt(body, 0));
    body.remove_prefix(WORD_SIZE);
    if (!takeBlock(body, reply.index) || !takeBlock(body, reply.value) || !body.empty()) return std::nullopt;
    return reply;
}

std::optional<Reply> commandExchange(Stream& stream, const std::string& root, const Request& request,
                                     int64_t timeoutMs) {
    if (!connectToDaemon(stream, root, timeoutMs)) return {};
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
