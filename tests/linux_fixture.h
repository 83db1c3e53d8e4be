// The daemon beside a switch that the kernel makes, both the test's own.
#pragma once

#include <atomic>
#include <cstdlib>
#include <functional>
#include <regex>
#include <thread>

#include "e2e.h"
#include "linux_switch.h"

// Set where a test must not be skipped because something is missing.
inline constexpr char NO_SKIPPING[] = "PORTISOLATE_TESTS_UNSKIPPED";

#define SKIP_FOR(reason)                                             \
    do {                                                             \
        if (std::getenv(NO_SKIPPING) != nullptr) FAIL() << (reason); \
        GTEST_SKIP() << (reason);                                    \
    } while (false)

struct LinuxPlaneTest : EndToEnd {
    LinuxSwitch network;

    void SetUp() override {
        EndToEnd::SetUp();
        if (const std::string problem = enterNetwork(); !problem.empty()) SKIP_FOR(problem);
    }
    void TearDown() override {
        EndToEnd::TearDown();
        dropSwitch(network);
    }

    void restart() {
        std::filesystem::remove(root + COMMAND_SOCKET_PATH);
        start("portisolate.srcaggtoport = 0\nportisolate.dstaggtoport = 0\n");
    }
    void build(const std::string& description, const std::vector<std::string>& ports,
               const std::string& bridgeOptions = "") {
        ASSERT_EQ(buildSwitch(network, ports, bridgeOptions), "");
        board = description;
        restart();
    }

    // Lines of a board verb's answer in which the pattern is found.
    Texts linesWith(const std::string& verb, const std::string& pattern) const {
        Texts lines = split(boardAnswer(verb), '\n');
        std::erase_if(lines,
                      [&](const std::string& line) { return !std::regex_search(line, std::regex(pattern)); });
        return lines;
    }
    // The same after the daemon has heard of everything that happened.
    Texts settled(const std::string& verb, const std::string& pattern) const {
        boardAnswer("settle");
        return linesWith(verb, pattern);
    }
    // Entries of the plane, of which there must be some, that the kernel does not hold as they were asked
    // for.
    Texts notHeld() const {
        EXPECT_FALSE(linesWith("plane show", "^entry ").empty());
        return linesWith("plane show", "^entry (?!.* state=held )");
    }
};

// Does something again and again until its end.
struct Repeated {
    std::atomic<bool> ends = false;
    std::thread thread;

    explicit Repeated(std::function<void()> once) {
        thread = std::thread([this, once] {
            while (!ends) once();
        });
    }
    ~Repeated() {
        ends = true;
        thread.join();
    }
};

// Frames from one host to all others, until the end.
struct Stream {
    std::atomic<uint32_t> heard = 0;  // by the host that may hear it
    Repeated sender;

    Stream(LinuxSwitch& network, const std::string& from, const std::string& to)
        : sender([=, this, &network] {
              sendStream(network, from);
              heard += heardOfStreams(network, to);
          }) {}
    bool flows() const {
        return eventually([this, before = uint32_t{heard}] { return heard - before > 200; });
    }
};
