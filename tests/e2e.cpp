#include "e2e.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace {

constexpr int PATIENCE = 30000;    // milliseconds; sanitizers on a busy machine are slow
constexpr int CONNECT_RETRY = 10;  // milliseconds
constexpr int LATE_TRIES = 10;

bool becomes(int fd, int events, int timeout) {
    pollfd polled = {fd, static_cast<short>(events), 0};
    return poll(&polled, 1, timeout) == 1;
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

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address = {AF_UNIX, {}};
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

uint32_t size(const Words& words) {
    return static_cast<uint32_t>(words.size() * sizeof(uint32_t));
}

}  // namespace

bool endsWithin(pid_t program, int timeout) {
    const int fd = static_cast<int>(syscall(SYS_pidfd_open, program, 0));
    const bool ended = becomes(fd, POLLIN, timeout);
    close(fd);
    return ended;
}

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
    return {reinterpret_cast<const char*>(words.data()), size(words)};
}

std::string request(uint32_t opcode, uint32_t column, const Words& index, const Words& value) {
    return bytesOf({16 + size(index) + size(value), opcode, column, size(index)}) + bytesOf(index) +
           bytesOf({size(value)}) + bytesOf(value);
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
            const ssize_t got = recv(fd, chunk, std::min(sizeof(chunk), expected.size()), MSG_DONTWAIT);
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
    std::string bytes;
    char chunk[65536];
    while (bytes.size() < length) {
        const bool arrives = becomes(fd, POLLIN, PATIENCE);
        EXPECT_TRUE(arrives) << "neither an answer nor an end";
        const ssize_t got = arrives ? recv(fd, chunk, std::min(sizeof(chunk), length - bytes.size()), 0) : 0;
        if (got <= 0) break;
        bytes.append(chunk, static_cast<size_t>(got));
    }
    return bytes;
}

int32_t statusOf(int fd, std::string_view frame) {
    EXPECT_TRUE(converse(fd, frame));
    const std::string answer = receive(fd, reply(0).size());
    int32_t status = -1;
    if (answer.size() == reply(0).size()) {
        std::memcpy(&status, answer.data() + sizeof(status), sizeof(status));
    }
    return status;
}

void EndToEnd::SetUp() {
    char name[] = "/tmp/e2eXXXXXX";
    root = mkdtemp(name);
    std::filesystem::create_directories(root + "/tmp");
    std::filesystem::create_directories(root + "/etc/portisolate");
    board = readText(DEMO_BOARD);
    unsetenv("JOURNAL_STREAM");
}

void EndToEnd::TearDown() {
    if (daemon != 0) stop();
    for (const char* fault : {"Sanitizer", "runtime error", "fault: signal", "Success"}) {
        EXPECT_EQ(log().find(fault), std::string::npos) << log();
    }
    std::filesystem::remove_all(root);
}

pid_t EndToEnd::spawn(const char* program, const Texts& arguments, const std::string& name) const {
    std::vector<char*> argv = {const_cast<char*>(program)};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setenv(ROOT_VARIABLE, root.c_str(), 1);
    for (const auto& [suffix, target] : {std::pair{".out", STDOUT_FILENO}, {".err", STDERR_FILENO}}) {
        dup2(open((root + "/" + name + suffix).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600),
             target);
    }
    execv(program, argv.data());
    _exit(127);
}

void EndToEnd::start(const std::string& options) {
    std::ofstream(root + "/etc/portisolate/board.conf") << board;
    std::ofstream(root + "/etc/portisolate/portisolate.conf") << options;
    daemon = spawn(DAEMON_PROGRAM, {}, "daemon");
    awaitService();
}

void EndToEnd::awaitService() {
    int fd = connectTo(COMMAND_SOCKET_PATH);
    for (int tries = 0; fd < 0 && tries < PATIENCE / CONNECT_RETRY && !endsWithin(daemon, CONNECT_RETRY);
         ++tries) {
        fd = connectTo(COMMAND_SOCKET_PATH);
    }
    ASSERT_GE(fd, 0) << "the daemon does not serve: " << log();
    close(fd);
}

Outcome EndToEnd::startInVain(const std::string& options) {
    std::ofstream(root + "/etc/portisolate/portisolate.conf") << options;
    return outcomeOf(spawn(DAEMON_PROGRAM, {}, "vain"), "vain");
}

void EndToEnd::tell(int signal) const {
    ASSERT_GT(daemon, 0) << "there is no daemon";
    kill(daemon, signal);
}

void EndToEnd::stop(int signal) {
    EXPECT_FALSE(endsWithin(daemon, 0)) << "the daemon has ended by itself";
    ASSERT_NO_FATAL_FAILURE(tell(signal));
    EXPECT_EQ(reap(daemon), -signal) << log();
    daemon = 0;
}

pid_t EndToEnd::startCtl(const std::string& arguments, const std::string& name) const {
    return spawn(CTL_PROGRAM, split(arguments, ' '), name);
}

Outcome EndToEnd::outcomeOf(pid_t program, const std::string& name) const {
    const std::string path = root + "/" + name;
    const int status = reap(program);
    const Outcome outcome = {status, readText(path + ".out"), readText(path + ".err")};
    for (const char* suffix : {".out", ".err"}) std::filesystem::remove(path + suffix);
    return outcome;
}

Outcome EndToEnd::ctl(const std::string& arguments) const {
    return outcomeOf(startCtl(arguments, "ctl"), "ctl");
}

std::string EndToEnd::ctlOutput(const std::string& arguments) const {
    const Outcome outcome = ctl(arguments);
    EXPECT_EQ(outcome.status, 0) << arguments << ": " << outcome.err;
    return outcome.out;
}

int EndToEnd::connectTo(const char* socketPath, int type) const {
    const sockaddr_un address = addressOf(root + socketPath);
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
    close(fd);
    return -1;
}

int EndToEnd::listenAt(const std::string& socketPath, int type) const {
    const sockaddr_un address = addressOf(root + socketPath);
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_TRUE(type == SOCK_DGRAM || listen(fd, 8) == 0);
    return fd;
}

std::string EndToEnd::askLine(const char* socketPath, const std::string& line) const {
    const int fd = connectTo(socketPath);
    converse(fd, line + "\n");  // who is turned away at once is told all the same
    const std::string answer = receive(fd, SIZE_MAX);
    close(fd);
    return answer;
}

std::string EndToEnd::boardAnswer(const std::string& line) const {
    std::string answer = askLine(BOARD_SOCKET_PATH, line);
    // An emulated machine may be slower than the board waits.
    const auto late = [&] { return answer.find("in time") != std::string::npos; };
    for (int tries = 0; tries < LATE_TRIES && late(); ++tries) answer = askLine(BOARD_SOCKET_PATH, line);
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

rlim_t EndToEnd::limitTo(__rlimit_resource resource, rlim_t most) const {
    rlimit limit = {};
    EXPECT_EQ(prlimit(daemon, resource, nullptr, &limit), 0);
    const rlim_t before = std::exchange(limit.rlim_cur, most);
    EXPECT_EQ(prlimit(daemon, resource, &limit, nullptr), 0);
    return before;
}
