// The line sockets of the daemon's host, by libportisolate: the board socket with its one-line requests, and
// the process shell, which answers with a printout. Nothing here prints or ends a command;
// lib/link/session.h does.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lib/link/client.h"

struct BoardInterface {
    uint32_t number = 0;
    std::string name{};
    std::string kind{};
    uint32_t slot = 0;
    bool present = false;
    bool gone = false;    // for good: only rows are left of it
    std::string trunk{};  // empty: in none
    uint32_t ability = 0;
    bool protocol = false;
    std::vector<std::string> members{};
    uint32_t vlan = 0;     // 0: no VLAN interface
    std::string device{};  // the kernel's name; empty: none
    bool access = false;   // held by the PON isolation of a VLAN
    bool span = false;     // leads to other machines, and carries groups there
    // As the kernel knows them: any bytes, since whoever makes a port chooses them.
    std::string alias{};
    std::vector<std::string> otherNames{};
    uint32_t life = 0;  // another number whenever it has come, or got another name or alias
};

enum class LineResult : uint8_t { done, refused, failed };

// How a request to a line socket went.
struct LineAnswer {
    LineResult result = LineResult::done;
    std::string text;  // the shell's printout; the reason where there is no whole answer
};

// Takes a line of an answer; false when no more is wanted.
using LineSink = std::function<bool(std::string_view)>;

// Sends a request line and hands each line of the answer to `sink` until it returns false. Connecting,
// sending and the answer take at most `timeoutMs` each; with `endless` the lines behind "ok" are waited for
// without limit.
LineAnswer boardRequest(portisolate_connection* daemon, const std::string& request, int64_t timeoutMs,
                        bool endless, const LineSink& sink);

// A stream of lines that goes on for ever; closed when it is assigned another one.
struct LineReader {
    std::shared_ptr<portisolate_lines> lines{};
};
enum class Taken : uint8_t { line, none, end };

// Asks for the stream; its lines are there to be taken when the answer is `done`.
LineAnswer boardStream(LineReader& reader, portisolate_connection* daemon, const std::string& request);
// The next line, for which it waits `waitMs` milliseconds, or for ever when that is negative.
Taken takeLine(LineReader& reader, std::string& line, int64_t waitMs);
// For poll, where no line is there to be taken.
int descriptorOf(const LineReader& reader);

// Runs an exported print function of the daemon; its printout is handed back byte for byte.
LineAnswer shellRequest(portisolate_connection* daemon, const std::string& function);

// Reads a line of the board's `list`. Nothing when it lacks a number or a name.
std::optional<BoardInterface> parseBoardInterface(std::string_view line);
