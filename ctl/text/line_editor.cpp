// Terminals differ in more ways than a program like this one should know, so the editing itself is the
// line-editing library's; here is what it does not have: which words may come next, and where the history is.
#include "ctl/text/line_editor.h"

#include <editline/readline.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int HISTORY_LINES = 500;
constexpr char HISTORY_FILE[] = "/.portisolatectl_history";

LineCompletion gCompletion;
std::vector<std::string> gCandidates;

// Hands out one candidate per call; the library frees it.
char* nextCandidate(const char*, int state) {
    static size_t next = 0;
    next = state == 0 ? 0 : next;
    return next < gCandidates.size() ? strdup(gCandidates[next++].c_str()) : nullptr;
}

char** complete(const char* text, int start, int) {
    rl_attempted_completion_over = 1;  // no file names
    gCandidates = gCompletion(std::string(rl_line_buffer, static_cast<size_t>(start)) + text);
    return gCandidates.empty() ? nullptr : rl_completion_matches(text, nextCandidate);
}

std::string historyPath() {
    const char* home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + HISTORY_FILE : "";
}

}  // namespace

void openLineEditor(const LineCompletion& completion) {
    static char blanks[] = " \t";
    gCompletion = completion;
    rl_readline_name = "portisolatectl";
    rl_completer_word_break_characters = blanks;
    rl_attempted_completion_function = complete;
    using_history();
    stifle_history(HISTORY_LINES);
    if (!historyPath().empty()) read_history(historyPath().c_str());
}

bool editLine(const char* prompt, std::string& line) {
    errno = 0;
    char* text = readline(prompt);
    if (text == nullptr) {
        std::puts("");
        line.clear();
        // An interrupt gives up the line, not the session.
        return errno == EINTR;
    }
    line = text;
    std::free(text);
    if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
    return true;
}

void closeLineEditor() {
    if (!historyPath().empty()) write_history(historyPath().c_str());
}
