// The command socket as a client sees it: requests and replies in the format of wire/framing.h. Lengths that
// a reply claims are checked before they are believed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ctl/client/stream.h"

struct Request {
    uint32_t opcode = 0;
    uint32_t column = 0;
    std::string index;      // bytes
    std::string value;      // bytes to send, for set and sync
    uint32_t capacity = 0;  // offered for the answer's value, where no value is sent
};

struct Reply {
    int32_t status = 0;
    std::string index;  // bytes
    std::string value;  // bytes
};

// Words in the host's byte order, as the sockets carry them.
void appendWord(std::string& bytes, uint32_t word);
uint32_t wordAt(std::string_view bytes, size_t position);

std::string encodeRequest(const Request& request);
// `body` is a reply behind its length word. False when its inner lengths do not add up.
bool decodeReply(std::string_view body, Reply& reply);

// Sends one request and waits for its reply, connecting first where needed. False with stream.failure set
// when the daemon cannot be reached, does not answer in time or breaks the format.
bool commandExchange(Stream& stream, const Request& request, Reply& reply, int64_t timeoutMs);
