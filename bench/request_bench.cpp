// What a request costs on its way through the command socket: the daemon as it is shipped, in a root of its
// own, compared with the simplest possible server, which sends back what it reads. Both are asked in turns
// from this process, so that other load on the machine affects both alike; the ratio of the two is the
// result. The time from the start of the daemon to its first answer and its resident memory are measured as
// well.
//
// usage: request_bench DAEMON
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/records.h"

namespace {

constexpr int TURNS = 40;
constexpr int REQUESTS_A_TURN = 2000;
constexpr int PIPELINED = 10000;
constexpr int CLIENTS = 8;
constexpr std::chrono::seconds SHARING(2);
constexpr std::chrono::seconds START_LIMIT(10);
constexpr useconds_t CONNECT_PAUSE = 100;
constexpr int STARTS = 20;
constexpr size_t REPLY_STATUS = 16;  // bytes of a reply without a value

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

std::filesystem::path root;
std::vector<pid_t> children;

void endChildren() {
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    children.clear();
    std::filesystem::remove_all(root);
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "request_bench: %s: %s\n", what, std::strerror(errno));
    endChildren();
    std::_Exit(EXIT_FAILURE);
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) fail("the path of a socket is too long");
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

[[noreturn]] void serveEcho(int listener) {
    std::vector<pollfd> polled = {{listener, POLLIN, 0}};
    for (;;) {
        if (poll(polled.data(), polled.size(), -1) < 0) std::_Exit(EXIT_FAILURE);
        for (size_t i = 1; i < polled.size(); ++i) {
            if (polled[i].revents == 0) continue;
            char chunk[32 * 1024];
            const ssize_t got = recv(polled[i].fd, chunk, sizeof(chunk), 0);
            if (got > 0 && send(polled[i].fd, chunk, static_cast<size_t>(got), MSG_NOSIGNAL) == got) continue;
            close(polled[i].fd);
            polled[i].fd = -1;
        }
        if (polled[0].revents != 0) polled.push_back({accept(listener, nullptr, nullptr), POLLIN, 0});
    }
}

std::string startEcho() {
    const std::string path = root / "tmp/echo.socket";
    const sockaddr_un address = addressOf(path);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) fail("bind");
    if (listen(listener, CLIENTS) != 0) fail("listen");
    const pid_t child = fork();
    if (child < 0) fail("fork");
    if (child == 0) serveEcho(listener);
    children.push_back(child);
    close(listener);
    return path;
}

// In its own folder below the root; returns the path of its command socket.
std::string startDaemon(const char* program, const char* folder) {
    const std::filesystem::path own = root / folder;
    std::filesystem::create_directories(own / "tmp");
    const pid_t child = fork();
    if (child < 0) fail("fork");
    if (child == 0) {
        setenv(ROOT_VARIABLE, own.c_str(), 1);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        execl(program, program, static_cast<char*>(nullptr));
        std::_Exit(EXIT_FAILURE);
    }
    children.push_back(child);
    return own.string() + COMMAND_SOCKET_PATH;
}

int connectTo(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    const auto deadline = Clock::now() + START_LIMIT;
    for (;;) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return fd;
        if (Clock::now() > deadline) fail(path.c_str());
        close(fd);
        usleep(CONNECT_PAUSE);
    }
}

void putWord(Bytes& bytes, uint32_t word) {
    const auto* data = reinterpret_cast<const uint8_t*>(&word);
    bytes.insert(bytes.end(), data, data + sizeof(word));
}

// The request about the row status of interface 1 in group 1; a value that is sent (set) or a capacity (get).
Bytes groupRequest(uint32_t opcode, uint32_t value) {
    PortIsolateIfGrpIndex index = {};
    index.ifUnit = 1;
    index.isoGrpNo = 1;
    const auto* indexBytes = reinterpret_cast<const uint8_t*>(&index);
    Bytes request;
    putWord(request, COMMAND_WORDS_MIN + sizeof(index) + (value != 0 ? 4 : 0));
    putWord(request, opcode);
    putWord(request, GROUP_COLUMN_ROW_STATUS);
    putWord(request, sizeof(index));
    request.insert(request.end(), indexBytes, indexBytes + sizeof(index));
    putWord(request, 4);
    if (value != 0) putWord(request, value);
    return request;
}

void sendWhole(int fd, const Bytes& bytes) {
    if (send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        fail("send");
}

void receiveWhole(int fd, size_t length) {
    uint8_t chunk[64];
    for (size_t got = 0; got < length;) {
        const ssize_t one = recv(fd, chunk, std::min(sizeof(chunk), length - got), 0);
        if (one <= 0) fail("a server ended the connection");
        got += static_cast<size_t>(one);
    }
}

double microseconds(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Microseconds for one round trip.
double askInTurn(int fd, const Bytes& request, size_t reply, int count) {
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i) {
        sendWhole(fd, request);
        receiveWhole(fd, reply);
    }
    return microseconds(start) / count;
}

// Microseconds for one of many requests that are sent as fast as they are taken.
double askAhead(int fd, const Bytes& request, size_t reply, int count) {
    Bytes all;
    for (int i = 0; i < count; ++i) all.insert(all.end(), request.begin(), request.end());
    size_t sent = 0;
    size_t left = reply * static_cast<size_t>(count);
    const auto start = Clock::now();
    while (left > 0) {
        pollfd one = {fd, static_cast<short>(sent < all.size() ? POLLIN | POLLOUT : POLLIN), 0};
        if (poll(&one, 1, -1) < 0) fail("poll");
        if ((one.revents & POLLIN) != 0) {
            char chunk[64 * 1024];
            const ssize_t got = recv(fd, chunk, sizeof(chunk), MSG_DONTWAIT);
            if (got <= 0) fail("the daemon ended the connection");
            left -= static_cast<size_t>(got);
        }
        if ((one.revents & POLLOUT) == 0) continue;
        const ssize_t put = send(fd, all.data() + sent, all.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (put < 0 && errno != EAGAIN) fail("send");
        if (put > 0) sent += static_cast<size_t>(put);
    }
    return microseconds(start) / count;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

long residentKib(pid_t process) {
    std::FILE* status = std::fopen(("/proc/" + std::to_string(process) + "/status").c_str(), "r");
    if (status == nullptr) fail("/proc");
    char line[128];
    long resident = 0;
    while (std::fgets(line, sizeof(line), status) != nullptr) std::sscanf(line, "VmRSS: %ld", &resident);
    std::fclose(status);
    return resident;
}

// From the fork to the first reply, with the options' defaults and no board.
void measureStarts(const char* program, const Bytes& get) {
    std::vector<double> starts;
    long resident = 0;
    for (int i = 0; i < STARTS; ++i) {
        const auto start = Clock::now();
        const int fd = connectTo(startDaemon(program, ("start" + std::to_string(i)).c_str()));
        sendWhole(fd, get);
        receiveWhole(fd, REPLY_STATUS);
        starts.push_back(microseconds(start) / 1000);
        resident = std::max(resident, residentKib(children.back()));
        close(fd);
        kill(children.back(), SIGKILL);
        waitpid(children.back(), nullptr, 0);
        children.pop_back();
    }
    std::sort(starts.begin(), starts.end());
    std::printf("start to first reply  %6.2f   ms, median of %d (%.2f to %.2f); resident %ld KiB\n",
                median(starts), STARTS, starts.front(), starts.back(), resident);
}

void compareWithEcho(int daemon, int echo, const Bytes& get, size_t reply) {
    std::vector<double> gets;
    std::vector<double> echoes;
    std::vector<double> ratios;
    for (int turn = 0; turn < TURNS; ++turn) {
        gets.push_back(askInTurn(daemon, get, reply, REQUESTS_A_TURN));
        echoes.push_back(askInTurn(echo, get, get.size(), REQUESTS_A_TURN));
        ratios.push_back(gets.back() / echoes.back());
    }
    std::printf("get / echo            %6.2f   (%.2f us / %.2f us, medians of %d turns)\n", median(ratios),
                median(gets), median(echoes), TURNS);
}

void comparePipelined(int daemon, const Bytes& get, size_t reply) {
    std::vector<double> single;
    std::vector<double> ahead;
    std::vector<double> ratios;
    for (int turn = 0; turn < TURNS / 4; ++turn) {
        single.push_back(askInTurn(daemon, get, reply, PIPELINED));
        ahead.push_back(askAhead(daemon, get, reply, PIPELINED));
        ratios.push_back(single.back() / ahead.back());
    }
    std::printf("pipelined / in turn   %6.2f   (%.2f us / %.2f us a request, %d requests)\n", median(ratios),
                median(ahead), median(single), PIPELINED);
}

struct Client {
    int fd;
    size_t awaited = 0;  // bytes of replies
    long answered = 0;
};

// Eight connections, each with so many requests on their way all the time. One thread drives them, so that
// the daemon decides which is answered, not the scheduler of the clients.
void compareClients(const std::string& path, const Bytes& get, size_t reply, int ahead) {
    std::vector<Client> clients;
    std::vector<pollfd> polled;
    for (int i = 0; i < CLIENTS; ++i) {
        clients.push_back({connectTo(path)});
        polled.push_back({clients.back().fd, POLLIN, 0});
    }
    const auto end = Clock::now() + SHARING;
    while (Clock::now() < end) {
        for (Client& client : clients) {
            Bytes requests;
            for (; client.awaited < reply * static_cast<size_t>(ahead); client.awaited += reply)
                requests.insert(requests.end(), get.begin(), get.end());
            if (!requests.empty()) sendWhole(client.fd, requests);
        }
        if (poll(polled.data(), polled.size(), -1) < 0) fail("poll");
        for (size_t i = 0; i < clients.size(); ++i) {
            if (polled[i].revents == 0) continue;
            char chunk[64 * 1024];
            const ssize_t got = recv(clients[i].fd, chunk, sizeof(chunk), MSG_DONTWAIT);
            if (got <= 0) fail("the daemon ended the connection");
            clients[i].awaited -= static_cast<size_t>(got);
            clients[i].answered += got;
        }
    }
    const auto [slowest, fastest] =
        std::minmax_element(clients.begin(), clients.end(),
                            [](const Client& a, const Client& b) { return a.answered < b.answered; });
    const double least = static_cast<double>(slowest->answered) / static_cast<double>(reply);
    const double most = static_cast<double>(fastest->answered) / static_cast<double>(reply);
    std::printf("slowest / fastest     %6.2f   (%.0f / %.0f requests, %d clients, %d ahead)\n", least / most,
                least, most, CLIENTS, ahead);
    for (const Client& client : clients) close(client.fd);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: request_bench DAEMON\n");
        return 2;
    }
    char folder[] = "/tmp/request_bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) fail("no temporary folder");
    root = folder;
    std::filesystem::create_directory(root / "tmp");
    const std::string echoPath = startEcho();
    const std::string daemonPath = startDaemon(argv[1], "daemon");
    const int echo = connectTo(echoPath);
    const int daemon = connectTo(daemonPath);

    const Bytes create = groupRequest(OP_GROUP_SET, ROW_CREATE);
    sendWhole(daemon, create);
    receiveWhole(daemon, REPLY_STATUS);
    const Bytes get = groupRequest(OP_GROUP_GET, 0);
    const size_t reply = REPLY_STATUS + sizeof(uint32_t);

    compareWithEcho(daemon, echo, get, reply);
    comparePipelined(daemon, get, reply);
    compareClients(daemonPath, get, reply, 1);
    compareClients(daemonPath, get, reply, 100);
    measureStarts(argv[1], get);
    endChildren();
    return EXIT_SUCCESS;
}
