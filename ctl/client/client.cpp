#include "ctl/client/client.h"

#include <cstring>

#include "wire/framing.h"

namespace {

constexpr size_t WORD = sizeof(uint32_t);
constexpr size_t REPLY_MIN = 3 * WORD;  // status and two lengths

// Takes a length word and as many bytes off the front of `rest`.
bool takeBlock(std::string_view& rest, std::string& block) {
    if (rest.size() < WORD) {
        return false;
    }
    const uint32_t length = wordAt(rest, 0);
    rest.remove_prefix(WORD);
    if (length > rest.size()) {
        return false;
    }
    block.assign(rest.substr(0, length));
    rest.remove_prefix(length);
    return true;
}

}  // namespace

void appendWord(std::string& bytes, uint32_t word) {
    char raw[WORD];
    std::memcpy(raw, &word, WORD);
    bytes.append(raw, WORD);
}

uint32_t wordAt(std::string_view bytes, size_t position) {
    uint32_t word;
    std::memcpy(&word, bytes.data() + position * WORD, WORD);
    return word;
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

bool decodeReply(std::string_view body, Reply& reply) {
    if (body.size() < REPLY_MIN) {
        return false;
    }
    reply.status = static_cast<int32_t>(wordAt(body, 0));
    body.remove_prefix(WORD);
    return takeBlock(body, reply.index) && takeBlock(body, reply.value) && body.empty();
}

bool commandExchange(Stream& stream, const Request& request, Reply& reply, int64_t timeoutMs) {
    if (stream.fd < 0 && !streamConnect(stream, socketPath(COMMAND_SOCKET_PATH), timeoutMs)) {
        return false;
    }
    const std::string frame = encodeRequest(request);
    if (!streamSend(stream, frame.data(), frame.size(), deadlineAfter(timeoutMs))) {
        return false;
    }
    const int64_t deadline = deadlineAfter(timeoutMs);
    uint32_t length = 0;
    if (!streamReceiveAll(stream, &length, sizeof(length), deadline)) {
        return false;
    }
    std::string body(length <= COMMAND_FRAME_MAX ? length : 0, '\0');
    if (!body.empty() && !streamReceiveAll(stream, body.data(), body.size(), deadline)) {
        return false;
    }
    if (decodeReply(body, reply)) {
        return true;
    }
    stream.failure = "the answer is malformed";
    streamClose(stream);
    return false;
}
