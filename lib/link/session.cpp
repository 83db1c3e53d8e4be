#include "lib/link/session.h"

#include <fmt/format.h>

#include <cstdio>

#include "common/statuses.h"
#include "wire/framing.h"
#include "wire/operations.h"

namespace {

CommandEnds unreachable(const Session& session, const char* socket, const std::string& why) {
    return {Exit::unreachable, "cannot talk to the daemon at " + session.root + socket + ": " + why};
}

portisolate_connection* daemonOf(Session& session) {
    return connectionOf(session.commands, session.root, session.timeoutMs);
}

// Ends the command unless the answer came whole.
void requireAnswer(const Session& session, const LineAnswer& answer, const std::string& asked,
                   const char* socket) {
    if (answer.result == LineResult::failed) throw unreachable(session, socket, answer.text);
    if (answer.result == LineResult::refused) {
        throw CommandEnds{Exit::refused, asked + ": refused: " + answer.text};
    }
}

}  // namespace

void sessionOpen(Session& session) {
    session.exchange = [&session](const Request& request) {
        return commandExchange(session.commands, session.root, request, session.timeoutMs);
    };
    session.board = [&session](const std::string& request, bool endless, const LineSink& sink) {
        return boardRequest(daemonOf(session), request, session.timeoutMs, endless, sink);
    };
}

void sessionClose(Session& session) {
    session.commands.connection.reset();
}

CommandEnds refusal(const std::string& asked, int32_t status) {
    return {Exit::refused, asked + " refused: " + describeStatus(status), status};
}

CommandEnds brokenProtocol(const std::string& what) {
    return {Exit::unreachable, "the daemon's answer makes no sense: " + what};
}

Reply ask(Session& session, const Request& request) {
    Request sent = request;
    const bool sets = sent.opcode < OP_COUNT && PORT_ISOLATE_OP_SHAPES[sent.opcode].kind == OpKind::set;
    if (session.asPeer && sets) sent.opcode = portIsolateSyncOf(sent.opcode);
    const std::optional<Reply> reply = session.exchange(sent);
    if (!reply) throw unreachable(session, COMMAND_SOCKET_PATH, session.commands.failure);
    return *reply;
}

WordReply askWord(Session& session, Request request) {
    request.capacity = WORD_SIZE;
    const Reply reply = ask(session, request);
    if (reply.status != 0) return {.status = reply.status};
    if (reply.value.size() != WORD_SIZE) {
        throw brokenProtocol(fmt::format("a value of {} bytes in place of a word", reply.value.size()));
    }
    return {.status = 0, .word = wordAt(reply.value, 0)};
}

std::vector<std::string> askBoard(Session& session, const std::string& request, const std::string& asked) {
    std::vector<std::string> lines;
    const auto keep = [&lines](std::string_view line) {
        lines.emplace_back(line);
        return true;
    };
    requireAnswer(session, session.board(request, false, keep), asked.empty() ? "board " + request : asked,
                  BOARD_SOCKET_PATH);
    return lines;
}

void followBoard(Session& session, const std::string& verb, std::optional<uint32_t> count,
                 const LineSink& print) {
    if (count == 0u) return;
    uint32_t seen = 0;
    const auto pass = [&](std::string_view line) {
        if (!print(line)) return true;
        std::fflush(stdout);
        return !count || ++seen < *count;
    };
    requireAnswer(session, session.board(verb, true, pass), verb, BOARD_SOCKET_PATH);
    if (!count || seen < *count) throw boardUnreachable(session, "the stream ended");
}

void openLines(Session& session, LineReader& reader, const std::string& verb) {
    requireAnswer(session, boardStream(reader, daemonOf(session), verb), verb, BOARD_SOCKET_PATH);
}

std::string askShell(Session& session, const std::string& function, const std::string& asked) {
    const LineAnswer answer = shellRequest(daemonOf(session), function);
    requireAnswer(session, answer, asked, SHELL_SOCKET_PATH);
    return answer.text;
}

CommandEnds boardUnreachable(const Session& session, const std::string& why) {
    return unreachable(session, BOARD_SOCKET_PATH, why);
}
