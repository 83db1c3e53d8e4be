// The command socket as a client sees it: requests and replies in the format of wire/framing.h. Lengths that
// a reply claims are checked before they are believed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/link/stream.h"
#include "common/bytes.h"

struct Request {
    uint32_t opcode = 0;
    uint32_t column = 0;
    std::string index{};    // bytes
    std::string value{};    // bytes to send, for set and sync
    uint32_t capacity = 0;  // offered for the answer's value, where no value is sent
};

struct Reply {
    int32_t status = 0;
    std::string index;  // bytes
    std::string value;  // bytes
};

// A word as bytes, for an index or a value.
std::string wordBytes(uint32_t word);

std::string encodeRequest(const Request& request);
// `body` is a reply behind its length word. Nothing when its inner lengths do not add up.
std::optional<Reply> decodeReply(std::string_view body);

// Sends one request and waits for its reply, connecting to the command socket below `root` first where
// needed. Nothing, with stream.failure set, when the daemon cannot be reached, is served by a user who is not
// the daemon's, does not answer in time or breaks the format.
std::optional<Reply> commandExchange(Stream& stream, const std::string& root, const Request& request,
                                     int64_t timeoutMs);
