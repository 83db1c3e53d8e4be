#include "ctl/commands/guardian.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>

#include "common/files.h"
#include "common/local_socket.h"
#include "ctl/commands/plan_run.h"

namespace {

constexpr char CONFIRMED[] = "confirmed\n";
constexpr int64_t TALK_TIME = 1000;  // milliseconds for a word of the other side
constexpr int64_t RETRY_SECONDS = 600;
constexpr int WAITING_MAX = 4;  // connections
constexpr char NO_GUARDIAN[] = "no process could be started that would take the change back";

socklen_t fillGuardAddress(const Session& session, sockaddr_un& address) {
    const size_t root = std::hash<std::string>{}(session.root);
    return fillAbstractAddress(fmt::format("portisolate-confirm-{:x}", root), address);
}

CommandEnds systemFailure(const char* what) {
    return {Exit::refused, fmt::format("{}: {}; nothing was applied", what, std::strerror(errno))};
}

bool mayBeTrusted(int fd) {
    const std::optional<ucred> other = processBehind(fd);
    return other && (other->uid == 0 || other->uid == geteuid());
}

bool waitToRead(int fd, int64_t milliseconds) {
    pollfd one = {fd, POLLIN, 0};
    return poll(&one, 1, static_cast<int>(milliseconds)) > 0;
}

// What a guardian has in its hands.
struct Guarded {
    int listener;
    int atWork;  // ends when the command has done its work
    pid_t command;
    int64_t end;  // monotonic milliseconds
    std::string root;
    Configuration former;
};

// Takes those who connect until one of them may confirm.
bool isConfirmed(int listener) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return false;
    const bool confirmed = mayBeTrusted(fd) && sendAll(fd, CONFIRMED, sizeof(CONFIRMED) - 1, TALK_TIME);
    close(fd);
    return confirmed;
}

// False when the time is up, or a signal asks for the change to be taken back.
bool waitForConfirmation(const Guarded& guarded, int signals) {
    for (;;) {
        const int64_t left = guarded.end - monotonicMs();
        pollfd polled[] = {{guarded.listener, POLLIN, 0}, {signals, POLLIN, 0}};
        const int ready = left > 0 ? poll(polled, std::size(polled), static_cast<int>(left)) : 0;
        if (ready == 0 || (ready > 0 && polled[1].revents != 0)) return false;
        if (ready > 0 && isConfirmed(guarded.listener)) return true;
    }
}

// Empty when the former configuration is in force.
std::string takeBack(const Guarded& guarded) {
    try {
        Session session;
        session.root = guarded.root;
        sessionOpen(session);
        const Plan plan = planChanges(readRunning(session), guarded.former);
        Progress progress;
        runPlan(session, plan, progress);
        sessionClose(session);
        return progress.refused == 0 ? "" : outcomeText(stepCount(plan), progress);
    } catch (const CommandEnds& end) {
        return end.why;
    }
}

void takeBackUntilDone(const Guarded& guarded) {
    // A command that is still at work would go on with the change. It alone has the other end of the pipe.
    if (!waitToRead(guarded.atWork, 0)) kill(guarded.command, SIGKILL);
    syslog(LOG_WARNING, "a change was not confirmed: it is taken back");
    std::string problem;
    for (const int64_t end = monotonicMs() + RETRY_SECONDS * 1000; monotonicMs() < end;) {
        const std::string before = problem;
        problem = takeBack(guarded);
        if (problem.empty()) return syslog(LOG_NOTICE, "the former configuration is in force again");
        if (problem != before) syslog(LOG_ERR, "cannot take the change back yet: %s", problem.c_str());
        poll(nullptr, 0, TALK_TIME);
    }
    syslog(LOG_ERR, "gave up taking the change back: %s", problem.c_str());
}

// Nothing of the operator's terminal is kept: it may be waited for to become free.
void detach() {
    setsid();
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nothing, fd);
    openlog("portisolatectl", LOG_PID, LOG_DAEMON);
}

[[noreturn]] void guard(const Guarded& guarded) {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) sigaddset(&ending, signal);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    signal(SIGPIPE, SIG_IGN);
    sigdelset(&ending, SIGHUP);
    sigdelset(&ending, SIGINT);
    const int signals = signalfd(-1, &ending, SFD_CLOEXEC);
    detach();
    if (!waitForConfirmation(guarded, signals)) takeBackUntilDone(guarded);
    _exit(0);
}

int listenForConfirmation(const Session& session) {
    sockaddr_un address;
    const socklen_t length = fillGuardAddress(session, address);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) throw systemFailure("no socket to confirm at");
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
        listen(listener, WAITING_MAX) == 0) {
        return listener;
    }
    const int problem = errno;
    close(listener);
    errno = problem;
    if (problem != EADDRINUSE) throw systemFailure("no socket to confirm at");
    throw CommandEnds{Exit::refused,
                      "an earlier change still waits for `portisolatectl confirm`; nothing was applied"};
}

}  // namespace

Guardian startGuardian(const Session& session, const Configuration& former, uint32_t seconds) {
    const int listener = listenForConfirmation(session);
    int work[2];
    if (pipe2(work, O_CLOEXEC) != 0) throw systemFailure("no pipe");
    const Guarded guarded = {listener,     work[0], getpid(), monotonicMs() + int64_t{seconds} * 1000,
                             session.root, former};
    const pid_t child = fork();
    if (child < 0) throw systemFailure(NO_GUARDIAN);
    if (child == 0) {
        close(work[1]);
        const pid_t guardian = fork();
        if (guardian == 0) guard(guarded);
        _exit(guardian < 0 ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    int status = 0;
    const bool started = waitpid(child, &status, 0) == child && status == 0;
    for (const int fd : {listener, work[0]}) close(fd);
    if (!started) throw CommandEnds{Exit::refused, NO_GUARDIAN};
    return {work[1]};
}

void endWork(Guardian& guardian) {
    if (guardian.atWork >= 0) close(guardian.atWork);
    guardian.atWork = -1;
}

void confirmChange(const Session& session) {
    sockaddr_un address;
    const socklen_t length = fillGuardAddress(session, address);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
        if (fd >= 0) close(fd);
        throw CommandEnds{Exit::refused, "no change waits to be confirmed"};
    }
    char word[sizeof(CONFIRMED)] = "";
    const bool trusted = mayBeTrusted(fd) || geteuid() == 0;
    const bool answered = waitToRead(fd, TALK_TIME) && recv(fd, word, sizeof(word) - 1, 0) > 0;
    close(fd);
    if (!trusted) throw CommandEnds{Exit::refused, "the change that waits was made by another user"};
    if (!answered || std::strcmp(word, CONFIRMED) != 0) {
        throw CommandEnds{Exit::refused,
                          "not confirmed: the change is being taken back, or was made by another user"};
    }
}
