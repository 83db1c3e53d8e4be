// What one run of a command works with: its settings, the connection to the daemon, and the board's
// interfaces once they were asked for. Whatever goes wrong on the way to the daemon is told here, once, so
// that commands only hand on the exit status.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/client/board_client.h"
#include "ctl/client/client.h"
#include "ctl/text/args.h"

enum class Exit : int {
    done = 0,
    refused = 1,      // by the daemon or the board
    usage = 2,        // the command line makes no sense
    unreachable = 3,  // no daemon, no answer in time, or one that cannot be read
};

struct Session {
    int64_t timeoutMs = 5000;
    bool json = false;
    bool quiet = false;  // nothing is told when the daemon does not answer
    Stream commands;
    // Hands a request to the daemon. False when it did not answer, with `commands.failure` saying why. Tests
    // put a daemon of their own here.
    std::function<bool(const Request&, Reply&)> exchange;
    bool interfacesAsked = false;
    std::string interfacesFailure;  // why `interfaces` is empty, when the board did not tell them
    std::vector<BoardInterface> interfaces;
};

void sessionOpen(Session& session);
void sessionClose(Session& session);

// One command as it was called.
struct Invocation {
    std::string object;  // in full
    std::string verb;    // in full; empty where the object is the command
    std::vector<std::string> arguments;
    std::vector<GivenOption> options;
};

// Tell what went wrong and answer the exit status for it. `asked` says what was wanted, such as
// "group 5, ge1/3: create".
Exit refuse(const std::string& asked, int32_t status);
Exit misuse(const std::string& sentence);
Exit brokenProtocol(const std::string& what);

// Exit::done when the daemon answered, whatever its status; otherwise the failure has been told.
Exit ask(Session& session, const Request& request, Reply& reply);
// The same for an operation that answers one word, which is there when the status is 0.
Exit askWord(Session& session, const Request& request, int32_t& status, uint32_t& word);

// Sends a line to the board socket; a refusal of the board and a failure to reach it have been told.
Exit askBoard(Session& session, const std::string& request, std::vector<std::string>& lines);
// The end of a line socket's request told as the exit status it deserves.
Exit lineExit(LineResult result, const std::string& asked, const char* socket, const std::string& why);

// Parses a number argument or tells what is wrong with it.
Exit numberArgument(const char* what, const std::string& text, uint32_t& number);
// Ranges and numbers, such as "10 20-23".
Exit numberArguments(const char* what, const std::vector<std::string>& texts, std::vector<uint32_t>& numbers);
