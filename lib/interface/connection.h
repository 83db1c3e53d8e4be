// What stands behind the handles of portisolate.h. A function of that header catches whatever is thrown below
// it; the functions here answer a portisolate_result and leave the reason in the handle.
#pragma once

#include <map>
#include <string>

#include "common/frames.h"
#include "lib/interface/portisolate.h"
#include "lib/interface/stream.h"

struct portisolate_connection {
    std::string root;
    int64_t timeoutMs;
    Stream commands{};
    Reply reply{};
    std::string error{};
    std::string reason{};
    std::string text{};  // handed out last
    bool versionKnown = false;
    uint32_t major = PORTISOLATE_PROTOCOL_MAJOR;
    uint32_t minor = 0;
    bool namesAsked = false;
    std::string namesFailure{};  // why there are none
    std::map<uint32_t, std::string> names{};
};

struct portisolate_lines {
    Stream stream{};
    std::string pending{};
    std::string line{};  // handed out last
    bool ended = false;
};

// Leaves `reason` as what went wrong at a socket below the root, or for null without one; answers `result`.
int fail(portisolate_connection& connection, int result, const char* socket, const std::string& reason);

// Connects to a line socket at `path` and sends a line. False with stream.failure set.
bool sendLine(Stream& stream, const std::string& path, const std::string& line, int64_t timeoutMs);
// The next line within `waitMs`, for ever when that is less than 0; a last one needs no line end.
int takeLine(portisolate_lines& lines, int64_t waitMs);
// Asks the board, up to the line that says whether it answers: PORTISOLATE_OK, or what is wrong in `reason`.
int askBoard(portisolate_lines& lines, const portisolate_connection& connection, const std::string& request,
             std::string& reason);
// Asks which version of the protocol the daemon speaks, unless that is known; a daemon that tells none, or
// whose board cannot be asked, speaks the first. PORTISOLATE_OTHER_VERSION for one that cannot be spoken to.
int checkVersion(portisolate_connection& connection);

// Connects to the command socket where needed, and the version is checked anew.
int connectCommands(portisolate_connection& connection);
int carryOut(portisolate_connection& connection, const Request& request);

// Runs `work`, which answers a result; where there is no memory for it, the answer is that.
template <typename Work>
int guarded(Work&& work) {
    try {
        return work();
    } catch (...) {
        return PORTISOLATE_NO_MEMORY;
    }
}

// Makes a handle, or answers null where there is no memory for it.
template <typename Work>
auto madeBy(Work&& work) -> decltype(work()) {
    try {
        return work();
    } catch (...) {
        return nullptr;
    }
}
