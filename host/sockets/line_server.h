// Serves a local stream socket on which a client sends one line, gets its answer and is closed.
//
// Each connection runs in a thread of its own, so an answer may take its time. What a client can cost is
// bounded: 64 connections at once (further ones wait in the socket's own queue), 16 KiB for its line, and 10
// seconds for sending it.
//
// Thread-safety
// -------------
// The handler runs in the connection's thread, beside other calls of itself, with no lock held.
#pragma once

#include <cstdint>
#include <string>

inline constexpr uint32_t ANSWER_TIMEOUT = 5000;  // milliseconds that a client may leave an answer unread

// Writes the answer to `client`; the server closes the descriptor afterwards. `line` is without its line end.
using LineHandler = void (*)(int client, const std::string& line);

// Serves `listener` by threads named `task` (at most 15 characters) as long as the process lives. 0, or -1
// after a report.
int32_t startLineServer(const char* task, int listener, LineHandler handler);

// Writes the next piece of an answer; false when the client is gone or does not read.
bool answerClient(int client, const std::string& text);
