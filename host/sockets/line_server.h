// Serves a local stream socket on which a client sends one line, gets its answer and is closed. Each
// connection runs in a thread of its own, so an answer may take its time; how many run at once is bounded,
// and so is the time that a client may take for its line.
#pragma once

#include <cstdint>
#include <string>

inline constexpr uint32_t ANSWER_TIMEOUT = 5000;  // milliseconds that a client may leave an answer unread

// Writes the answer to `client`; the server closes the descriptor afterwards.
using LineHandler = void (*)(int client, const std::string& line);

// 0 once the socket is served, by threads named `task`.
int32_t startLineServer(const char* task, const std::string& path, LineHandler handler);

// Whatever an answer has to say; false when the client is gone or does not read.
bool answerClient(int client, const std::string& text);
