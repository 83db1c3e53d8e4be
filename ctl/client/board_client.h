// The line sockets of the daemon's host: the board socket with its one-line requests, and the process shell,
// which answers with a printout.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/client/stream.h"

struct BoardInterface {
    uint32_t number = 0;
    std::string name;
    std::string kind;
    uint32_t slot = 0;
    bool present = false;
    std::string trunk;  // empty: in none
    uint32_t ability = 0;
    bool protocol = false;
    std::vector<std::string> members;
    uint32_t vlan = 0;    // 0: no VLAN interface
    std::string device;   // the kernel's name; empty: none
    bool access = false;  // held by the PON isolation of a VLAN
};

enum class LineResult : uint8_t { done, refused, failed };

// Sends a request line and hands each line of the answer to `line` until it returns false. When the board
// refuses, or there is no whole answer, `why` says so. Deadlines of the single steps are `timeoutMs`; with
// `endless` the lines behind "ok" are waited for without limit.
LineResult boardRequest(const std::string& request, int64_t timeoutMs, bool endless,
                        const std::function<bool(std::string_view)>& line, std::string& why);

// Runs an exported print function of the daemon and collects its printout, byte for byte.
LineResult shellRequest(const std::string& function, int64_t timeoutMs, std::string& printout,
                        std::string& why);

// Reads a line of the board's `list`. False when it lacks a number or a name.
bool parseBoardInterface(std::string_view line, BoardInterface& interface);
