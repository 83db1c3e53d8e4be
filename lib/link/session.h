// What one run of a command works with: its settings, the connection to the daemon, and the board's
// interfaces once they were asked for.
//
// Failures: every function here that asks ends the command (lib/text/exit.h) when the daemon or the board
// cannot be reached, does not answer in time, or answers what cannot be read. A status of the daemon is
// handed to the caller, who may go on; a refusal of the board ends the command.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/files.h"
#include "lib/link/board_client.h"
#include "lib/link/client.h"
#include "lib/text/exit.h"

struct Session {
    int64_t timeoutMs = 5000;
    bool json = false;
    std::string root = rootPrefix();  // of the daemon's files
    bool asPeer = false;              // what is set is not mirrored, as if the peer board had sent it
    DaemonLink commands;
    // Hands a request to the daemon. Nothing when it did not answer, with `commands.failure` saying why.
    // Tests put a daemon and a board of their own here.
    std::function<std::optional<Reply>(const Request&)> exchange;
    // The same for a line to the board socket, as boardRequest does it.
    std::function<LineAnswer(const std::string&, bool endless, const LineSink&)> board;
    bool interfacesAsked = false;
    std::string interfacesFailure;  // why `interfaces` is empty, when the board did not list them
    std::vector<BoardInterface> interfaces;
};

void sessionOpen(Session& session);
void sessionClose(Session& session);

// For `throw`, or for tellEnd where the command goes on: the daemon answered a status other than 0. `asked`
// says what was wanted, such as "group 5, ge1/3: create".
CommandEnds refusal(const std::string& asked, int32_t status);
// For `throw`: an answer that cannot be read, and what is wrong with it.
CommandEnds brokenProtocol(const std::string& what);

// Answers the daemon's reply, whatever its status.
Reply ask(Session& session, const Request& request);
// For an operation that answers one word, which is there when the status is 0. Room for it is offered.
struct WordReply {
    int32_t status = 0;
    uint32_t word = 0;
};
WordReply askWord(Session& session, Request request);

// Sends a line to the board socket and answers the lines that come back. `asked` names it in a refusal,
// "board REQUEST" by default.
std::vector<std::string> askBoard(Session& session, const std::string& request,
                                  const std::string& asked = "");
// Hands the lines that the board streams under `verb` to `print` until as many as `count` were printed, or
// for ever without one. `print` answers whether it printed the line.
void followBoard(Session& session, const std::string& verb, std::optional<uint32_t> count,
                 const LineSink& print);
// Asks for the board's stream of this name; ends the command when it does not come.
void openLines(Session& session, LineReader& reader, const std::string& verb);
// The printout of one of the daemon's print functions; `asked` names it in a failure.
std::string askShell(Session& session, const std::string& function, const std::string& asked);
// For `throw`: the board cannot be reached for the reason `why`.
CommandEnds boardUnreachable(const Session& session, const std::string& why);
