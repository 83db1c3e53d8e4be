#include "host/sockets/shell.h"

#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
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
constexpr unsigned PRINT_TIMEOUT = 2;  // seconds

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
// runs. It ends itself when its time is up.
[[noreturn]] void printInChild(PrintFunction print, int client) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGPIPE, SIG_DFL);
    std::signal(SIGALRM, SIG_DFL);
    alarm(PRINT_TIMEOUT);
    if (dup2(client, STDOUT_FILENO) < 0) _exit(1);
    close_range(STDERR_FILENO + 1, ~0u, 0);
    print();
    std::fflush(stdout);
    _exit(0);
}

// What is to be said behind the printout, or in its place.
std::string runPrintFunction(int client, const std::string& name, PrintFunction print) {
    const pid_t child = fork();
    if (child == 0) printInChild(print, client);
    if (child < 0) return "error: no process could be started\n";
    int result = 0;
    while (waitpid(child, &result, 0) < 0 && errno == EINTR) {
    }
    if (!WIFSIGNALED(result)) return "";
    if (WTERMSIG(result) == SIGALRM) return "\nerror: " + name + " was ended: it took too long\n";
    return "\nerror: " + name + " ended by a fault\n";
}

LineAnswer shellRequest(const LineRequest& request) {
    const std::string name(trimmed(request.line));
    const PrintFunction print = findPrintFunction(name);
    if (print == nullptr) return {"error: no such print function: " + safeText(name) + "\n", {}};
    return {runPrintFunction(request.client, name, print), {}};
}

}  // namespace

int32_t startProcessShell(int listener) {
    return startLineServer(SHELL_TASK, listener, shellRequest);
}
