#include "e2e.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "wire/framing.h"

namespace {
constexpr int PATIENCE = 30000;  // milliseconds; sanitizers on a busy machine are slow
constexpr int CONNECT_RETRY =
    10;  // milliseconds; a socket's file is there a moment before it can be connected

bool becomes(int fd, int events, int timeout) {
    pollfd polled = {fd, static_cast<short>(events), 0};
    return poll(&polled, 1, timeout) == 1;
}

// Standard output and standard error go to NAME.out and NAME.err.
pid_t spawn(const char* program, const Texts& arguments, const std::string& name) {
    std::vector<char*> argv = {const_cast<char*>(program)};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    dup2(open((name + ".out").c_str(), flags, 0600), STDOUT_FILENO);
    dup2(open((name + ".err").c_str(), flags, 0600), STDERR_FILENO);
    execv(program, argv.data());
    _exit(127);
}

bool endsWithin(pid_t program, int timeout) {
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, program, 0));
    const bool ended = becomes(fd, POLLIN, timeout);
    close(fd);
    return ended;
}

int reap(pid_t program) {
    int status = 0;
    if (!endsWithin(program, PATIENCE)) {
        ADD_FAILURE() << "a program does not end";
        kill(program, SIGKILL);
    }
    waitpid(program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

uint32_t size(const Words& words) {
    return static_cast<uint32_t>(words.size() * sizeof(uint32_t));
}
}  // namespace

Texts split(std::string_view text, char separator) {
    Texts pieces;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        if (end > 0) pieces.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return pieces;
}

std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string bytesOf(const Words& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(uint32_t)};
}

std::string request(uint32_t opcode, uint32_t column, const Words& index) {
    return bytesOf({16 + size(index), opcode, column, size(index)}) + bytesOf(index) + bytesOf({0});
}

std::string reply(int32_t status, const Words& index) {
    return bytesOf({12 + size(index), static_cast<uint32_t>(status), size(index)}) + bytesOf(index) +
           bytesOf({0});
}

bool converse(int fd, std::string_view frames, std::string_view expected) {
    char chunk[65536];
    while (!frames.empty() || !expected.empty()) {
        pollfd polled = {fd, 0, 0};
        polled.events = static_cast<short>((frames.empty() ? 0 : POLLOUT) | (expected.empty() ? 0 : POLLIN));
        if (poll(&polled, 1, PATIENCE) != 1) return false;
        if ((polled.revents & POLLIN) != 0) {
            const ssize_t got = recv(fd, chunk, std::min(sizeof chunk, expected.size()), MSG_DONTWAIT);
            if (got <= 0 || !expected.starts_with({chunk, static_cast<size_t>(got)})) return false;
            expected.remove_prefix(static_cast<size_t>(got));
        } else {
            const ssize_t sent = send(fd, frames.data(), frames.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (sent < 0) return false;
            frames.remove_prefix(static_cast<size_t>(sent));
        }
    }
    return true;
}

std::string receive(int fd, size_t length) {
    char chunk[65536];
    for (std::string bytes; true;) {
        const bool arrives = bytes.size() < length && becomes(fd, POLLIN, PATIENCE);
        EXPECT_TRUE(arrives || bytes.size() == length) << "neither an answer nor an end";
        const ssize_t got = arrives ? recv(fd, chunk, std::min(sizeof chunk, length - bytes.size()), 0) : 0;
        if (got <= 0) return bytes;
        bytes.append(chunk, static_cast<size_t>(got));
    }
}

int32_t statusOf(int fd, std::string_view frame) {
    EXPECT_TRUE(converse(fd, frame));
    const std::string answer = receive(fd, reply(0).size());
    int32_t status = -1;
    if (answer.size() == reply(0).size()) memcpy(&status, answer.data() + sizeof status, sizeof status);
    return status;
}

void EndToEnd::SetUp() {
    char name[] = "/tmp/e2eXXXXXX";
    root = mkdtemp(name);
    std::filesystem::create_directories(root + "/tmp");
    std::filesystem::create_directories(root + "/etc/portisolate");
    board = readText(DEMO_BOARD);
    setenv(ROOT_VARIABLE, root.c_str(), 1);
    unsetenv("JOURNAL_STREAM");
}

void EndToEnd::TearDown() {
    if (daemon != 0) stop();
    for (const char* fault : {"Sanitizer", "runtime error", "fault: signal"})
        EXPECT_EQ(log().find(fault), std::string::npos) << log();
    std::filesystem::remove_all(root);
}

void EndToEnd::start(const std::string& options) {
    std::ofstream(root + "/etc/portisolate/board.conf") << board;
    std::ofstream(root + "/etc/portisolate/portisolate.conf") << options;
    const int changes = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    inotify_add_watch(changes, (root + "/tmp").c_str(), IN_CREATE);
    daemon = spawn(DAEMON_PROGRAM, {}, root + "/daemon");
    int fd = -1;
    char events[4096];
    for (int tries = 0; tries < PATIENCE / CONNECT_RETRY && !endsWithin(daemon, 0); tries++) {
        fd = connectTo(COMMAND_SOCKET_PATH);
        if (fd >= 0 || (becomes(changes, POLLIN, CONNECT_RETRY) && read(changes, events, sizeof events) < 0))
            break;
    }
    close(changes);
    ASSERT_GE(fd, 0) << "the daemon does not serve: " << log();
    close(fd);
}

Outcome EndToEnd::startInVain(const std::string& options) {
    std::ofstream(root + "/etc/portisolate/portisolate.conf") << options;
    return outcomeOf(spawn(DAEMON_PROGRAM, {}, root + "/vain"), "vain");
}

void EndToEnd::stop(int signal) {
    EXPECT_FALSE(endsWithin(daemon, 0)) << "the daemon has ended by itself";
    kill(daemon, signal);
    EXPECT_EQ(reap(daemon), -signal) << log();
    daemon = 0;
}

pid_t EndToEnd::startCtl(const std::string& arguments, const std::string& name) {
    return spawn(CTL_PROGRAM, split(arguments, ' '), root + "/" + name);
}

Outcome EndToEnd::outcomeOf(pid_t program, const std::string& name) {
    const std::string path = root + "/" + name;
    const int status = reap(program);
    const Outcome outcome = {status, readText(path + ".out"), readText(path + ".err")};
    for (const char* suffix : {".out", ".err"}) std::filesystem::remove(path + suffix);
    return outcome;
}

Outcome EndToEnd::ctl(const std::string& arguments) {
    return outcomeOf(startCtl(arguments, "ctl"), "ctl");
}

std::string EndToEnd::ctlOutput(const std::string& arguments) {
    const Outcome outcome = ctl(arguments);
    EXPECT_EQ(outcome.status, 0) << arguments << ": " << outcome.err;
    return outcome.out;
}

int EndToEnd::connectTo(const char* socketPath, int type) const {
    sockaddr_un address = {AF_UNIX, {}};
    strncpy(address.sun_path, (root + socketPath).c_str(), sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

std::string EndToEnd::askLine(const char* socketPath, const std::string& line) const {
    const int fd = connectTo(socketPath);
    const std::string answer = converse(fd, line + "\n") ? receive(fd, SIZE_MAX) : "";
    close(fd);
    return answer;
}

std::string EndToEnd::boardAnswer(const std::string& line) const {
    const std::string answer = askLine(BOARD_SOCKET_PATH, line);
    EXPECT_TRUE(answer.starts_with("ok\n")) << line << ": " << answer;
    return answer.substr(std::min<size_t>(answer.size(), 3));
}

std::string EndToEnd::log() const {
    return readText(root + "/daemon.err");
}

size_t EndToEnd::descriptors() const {
    const std::filesystem::directory_iterator open("/proc/" + std::to_string(daemon) + "/fd");
    return static_cast<size_t>(std::distance(begin(open), end(open)));
}
