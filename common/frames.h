// Requests and replies of the command socket as a client sees them, in the format of wire/framing.h. Lengths
// that a reply claims are checked before they are believed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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
