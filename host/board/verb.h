// What a verb of the board socket is: a line of words in, lines of text or a problem out.
#pragma once

#include <string>
#include <vector>

#include "host/board/board.h"

using Words = std::vector<std::string>;

// The problem of a verb that was written wrongly: the answer then shows its usage.
inline constexpr char WRONG_USE[] = "usage";

// Carries out a verb; `words` begin with it. Returns the problem, empty for none, and writes the lines of the
// result. The board's lock is not held.
using VerbFunction = std::string (*)(Board& board, const Words& words, std::string& result);

struct Verb {
    const char* name;
    const char* arguments;
    const char* help;
    VerbFunction run;
    const char* kernelCommand = nullptr;  // does it where the kernel decides what is plugged
    bool laboratory = false;              // makes up what did not happen
    // How it only reads: with ANY_WORDS behind it, NO_WORDS, or one of these words alone; null: it never
    // does.
    const char* reads = nullptr;
};
inline constexpr char ANY_WORDS[] = "*";
inline constexpr char NO_WORDS[] = "";

inline std::string unknownInterface(const std::string& name) {
    return "no such interface: " + name;
}
