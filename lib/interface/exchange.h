// The way of a request to the daemon and of its reply back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/frames.h"
#include "lib/interface/stream.h"

// Connects to the command socket below `root`. False, with stream.failure set, when nobody serves it, or a
// user who is not the daemon's.
bool connectToDaemon(Stream& stream, const std::string& root, int64_t timeoutMs);

// Sends one request over the connected stream and waits for its reply. Nothing, with stream.failure set, when
// the daemon does not answer in time or breaks the format.
std::optional<Reply> commandExchange(Stream& stream, const Request& request, int64_t timeoutMs);
