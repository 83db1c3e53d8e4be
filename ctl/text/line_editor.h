// Reads lines from a terminal, with editing, history and completion where the line-editing library is built
// in, and plainly elsewhere.
#pragma once

#include <functional>
#include <string>
#include <vector>

// The words that may stand in place of the last one of a line.
using LineCompletion = std::function<std::vector<std::string>(const std::string& line)>;

// Reads the history of earlier sessions; `completion` is asked from now on.
void openLineEditor(const LineCompletion& completion);
// False at the end of the input.
bool editLine(const char* prompt, std::string& line);
// Keeps the history for later sessions.
void closeLineEditor();
