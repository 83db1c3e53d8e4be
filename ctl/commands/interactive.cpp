#include "ctl/commands/interactive.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "common/text.h"
#include "ctl/commands/commands.h"
#include "ctl/commands/complete.h"
#include "ctl/text/line_editor.h"
#include "lib/text/output.h"

namespace {

constexpr char PROMPT[] = "portisolate> ";
constexpr int INTERRUPTED = 128;  // added to a signal's number, as shells do

std::vector<std::string> completeLine(const std::string& line) {
    std::vector<std::string> words = splitWords(line);
    if (line.empty() || line.back() == ' ') words.emplace_back();
    Session session;
    sessionOpen(session);
    std::vector<std::string> found = completions(session, commandTable(), words);
    sessionClose(session);
    return found;
}

// Each command has a process of its own, so that an interrupt ends the command and not the session.
Exit runApart(const std::vector<std::string>& words) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        complain(std::string("cannot start a process for the command: ") + std::strerror(errno));
        return Exit::refused;
    }
    if (child == 0) {
        std::signal(SIGINT, SIG_DFL);
        const Exit exit = runCommandLine(words);
        std::fflush(nullptr);
        _exit(static_cast<int>(exit));
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        printLine("");
        return static_cast<Exit>(INTERRUPTED + WTERMSIG(status));
    }
    return static_cast<Exit>(WEXITSTATUS(status));
}

bool endsInput(const std::vector<std::string>& words) {
    return words.size() == 1 && (words[0] == "quit" || words[0] == "exit");
}

// The words of a line as a command; none of a comment or an empty line.
std::vector<std::string> commandOf(const std::string& line) {
    std::vector<std::string> words = splitWords(line);
    words.erase(std::find_if(words.begin(), words.end(),
                             [](const std::string& word) { return word.starts_with('#'); }),
                words.end());
    if (!words.empty() && words.back() == "?") {
        words.pop_back();
        words.insert(words.begin(), "help");
    }
    return words;
}

}  // namespace

bool canInteract() {
    return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
}

bool canReadLines() {
    return isatty(STDIN_FILENO) == 0;
}

Exit runLines(std::istream& input) {
    std::string line;
    bool asked = false;
    for (size_t number = 1; std::getline(input, line); ++number) {
        const std::vector<std::string> words = commandOf(line);
        if (words.empty()) continue;
        if (endsInput(words)) return Exit::done;
        asked = true;
        const Exit exit = runCommandLine(words);
        if (exit == Exit::done) continue;
        complain(fmt::format("standard input, line {}: nothing behind it was run", number));
        return exit;
    }
    return asked ? Exit::done : runCommandLine({});
}

Exit interact() {
    Exit exit = Exit::done;
    std::string line;
    std::signal(SIGINT, SIG_IGN);
    openLineEditor(completeLine);
    printLine("`help` or `?` shows what there is, `quit` leaves.");
    while (editLine(PROMPT, line)) {
        const std::vector<std::string> words = commandOf(line);
        if (endsInput(words)) break;
        if (!words.empty()) exit = runApart(words);
    }
    closeLineEditor();
    return exit;
}
