#include "host/sockets/shell.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>

#include "common/text.h"
#include "host/sockets/line_server.h"

namespace {

using PrintFunction = void (*)();

constexpr char SHELL_TASK[] = "processshell";
constexpr std::string_view NAME_START = "portIsolate";
constexpr std::string_view NAME_END = "Show";
constexpr int PRINT_TIMEOUT = 2000;  // milliseconds
constexpr int CHILD_PIPE = 3;

// Only print functions can be reached, whatever else the process exports.
PrintFunction findPrintFunction(std::string_view name) {
    if (!name.starts_with(NAME_START) || !name.ends_with(NAME_END)) return nullptr;
    if (name.size() < NAME_START.size() + NAME_END.size()) return nullptr;
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0) return nullptr;
    }
    return reinterpret_cast<PrintFunction>(dlsym(RTLD_DEFAULT, std::string(name).c_str()));
}

// In the child: nothing of the daemon stays open, least of all its sockets, and none of its exit handlers
// runs.
[[noreturn]] void printInChild(PrintFunction print, int client, int lifeline) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGPIPE, SIG_DFL);
    if (dup2(client, STDOUT_FILENO) < 0 || dup2(lifeline, CHILD_PIPE) < 0) _exit(1);
    close_range(CHILD_PIPE + 1, ~0u, 0);
    print();
    std::fflush(stdout);
    _exit(0);
}

// The child holds the other end of `lifeline` for as long as it lives.
bool endsInTime(int lifeline) {
    pollfd child = {lifeline, POLLIN, 0};
    return poll(&child, 1, PRINT_TIMEOUT) != 0;
}

void runPrintFunction(int client, const std::string& name, PrintFunction print) {
    int lifeline[2];
    if (pipe2(lifeline, O_CLOEXEC) != 0) {
        answerClient(client, "error: the daemon has no file descriptor left\n");
        return;
    }
    const pid_t child = fork();
    if (child == 0) printInChild(print, client, lifeline[1]);
    close(lifeline[1]);
    if (child < 0) {
        answerClient(client, "error: no process could be started\n");
    } else {
        const bool inTime = endsInTime(lifeline[0]);
        if (!inTime) kill(child, SIGKILL);
        int result = 0;
        waitpid(child, &result, 0);
        if (!inTime) {
            answerClient(client, "\nerror: " + name + " was ended: it took too long\n");
        } else if (WIFSIGNALED(result)) {
            answerClient(client, "\nerror: " + name + " ended by a fault\n");
        }
    }
    close(lifeline[0]);
}

void shellRequest(int client, const std::string& line) {
    const std::string name(trimmed(line));
    const PrintFunction print = findPrintFunction(name);
    if (print == nullptr) {
        answerClient(client, "error: no such print function: " + safeText(name) + "\n");
    } else {
        runPrintFunction(client, name, print);
    }
}

}  // namespace

int32_t startProcessShell(int listener) {
    return startLineServer(SHELL_TASK, listener, shellRequest);
}
