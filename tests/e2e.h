// Runs the real programs, each test in a root of its own: a daemon on a board description, spoken to through
// its sockets and through portisolatectl. A test is green only if the daemon lived to be ended by the test
// and reported no fault of its own. Waiting is always for something to happen, and bounded.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/records.h"
#include "wire/scalars.h"
#include "wire/status.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool SANITIZED = true;  // what is sent takes some fifty times as long to be carried out
#else
inline constexpr bool SANITIZED = false;
#endif

using Texts = std::vector<std::string>;
using Words = std::vector<uint32_t>;

Texts split(std::string_view text, char separator);  // without empty pieces
std::string readText(const std::string& path);
std::string bytesOf(const Words& words);

// Frames of the command socket with all their lengths right; a reply without a value.
std::string request(uint32_t opcode, uint32_t column, const Words& index, const Words& value = {});
std::string reply(int32_t status, const Words& index = {});

// Sends and receives at once, so that neither side waits for the other; true when all that comes back begins
// with `expected`.
bool converse(int fd, std::string_view frames, std::string_view expected = {});
std::string receive(int fd, size_t length);        // fewer only at the end of the connection
int32_t statusOf(int fd, std::string_view frame);  // of a request that may be refused; -1: no answer

bool endsWithin(pid_t program, int timeout);  // milliseconds

// Whether it becomes true, looking again and again for a good while.
template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        // What is waited for may need this processor, where there is one.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// How a program ended: its exit status, or the signal that ended it as a negative number.
struct Outcome {
    int status = 0;
    std::string out, err;
};

struct EndToEnd : testing::Test {
    std::string root;
    std::string board;  // description; may be changed before the start
    pid_t daemon = 0;

    void SetUp() override;
    void TearDown() override;

    // Starts the daemon with these lines of options and waits until it serves its command socket.
    void start(const std::string& options = "");
    void awaitService();  // of the daemon that was started
    // Runs the daemon's program where it is expected to end by itself.
    Outcome startInVain(const std::string& options = "");
    void tell(int signal) const;  // to the daemon, where there is one: 0 would be everybody here
    void stop(int signal = SIGTERM);

    Outcome ctl(const std::string& arguments) const;            // blanks part the arguments
    std::string ctlOutput(const std::string& arguments) const;  // of a call that must succeed
    // Standard output and standard error go to NAME.out and NAME.err in the root.
    pid_t spawn(const char* program, const Texts& arguments, const std::string& name) const;
    pid_t startCtl(const std::string& arguments, const std::string& name) const;
    Outcome outcomeOf(pid_t program, const std::string& name) const;
    int connectTo(const char* socketPath, int type = SOCK_STREAM) const;
    int listenAt(const std::string& socketPath, int type = SOCK_STREAM) const;  // in place of a program
    // One line to the board's or the process shell's socket, and all that comes back.
    std::string askLine(const char* socketPath, const std::string& line) const;
    std::string boardAnswer(const std::string& line) const;  // to a verb that must succeed

    std::string log() const;  // what the daemon wrote to standard error so far
    size_t descriptors() const;
    rlim_t limitTo(__rlimit_resource resource, rlim_t most) const;  // the daemon; what it was allowed before
};
