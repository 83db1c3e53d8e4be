#include "common/frames.h"

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
