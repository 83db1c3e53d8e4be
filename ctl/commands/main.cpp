// portisolatectl, the operator's command. The table of commands is in ctl/commands/commands.cpp; each
// family of commands has a file of its own.
#include <cstdio>
#include <iostream>

#include "ctl/commands/commands.h"
#include "ctl/commands/interactive.h"

namespace {

Exit runFrom(const std::vector<std::string>& words) {
    if (words.empty() && canInteract()) return interact();
    if (words.empty() && canReadLines()) return runLines(std::cin);
    return runCommandLine(words);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    const Exit exit = runFrom(words);
    if (std::fflush(stdout) != 0) {
        std::perror("portisolatectl: standard output");
        return static_cast<int>(exit == Exit::done ? Exit::refused : exit);
    }
    return static_cast<int>(exit);
}
