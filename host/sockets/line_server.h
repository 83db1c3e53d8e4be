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

// 0 once the socket `path` is served, by threads named `task` (at most 15 characters); -1 after a report, or
// when the system has no thread left. The server lives as long as the process.
int32_t startLineServer(const char* task, const std::string& path, LineHandler handler);

// Writes the next piece of an answer; false when the client is gone or does not read.
bool answerClient(int client, const std::string& text);
