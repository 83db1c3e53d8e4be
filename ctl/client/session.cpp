#include "ctl/client/session.h"

#include "ctl/client/statuses.h"
#include "ctl/text/output.h"
#include "wire/framing.h"

namespace {

Exit unreachable(const char* socket, const std::string& why) {
    complain("cannot talk to the daemon at " + socketPath(socket) + ": " + why);
    return Exit::unreachable;
}

}  // namespace

void sessionOpen(Session& session) {
    session.exchange = [&session](const Request& request, Reply& reply) {
        return commandExchange(session.commands, request, reply, session.timeoutMs);
    };
}

void sessionClose(Session& session) {
    streamClose(session.commands);
}

Exit refuse(const std::string& asked, int32_t status) {
    complain(asked + " refused: " + describeStatus(status));
    return Exit::refused;
}

Exit misuse(const std::string& sentence) {
    complain(sentence);
    return Exit::usage;
}

Exit brokenProtocol(const std::string& what) {
    complain("the daemon's answer makes no sense: " + what);
    return Exit::unreachable;
}

Exit ask(Session& session, const Request& request, Reply& reply) {
    if (session.exchange(request, reply)) {
        return Exit::done;
    }
    return session.quiet ? Exit::unreachable : unreachable(COMMAND_SOCKET_PATH, session.commands.failure);
}

Exit askWord(Session& session, const Request& request, int32_t& status, uint32_t& word) {
    Reply reply;
    const Exit exit = ask(session, request, reply);
    if (exit != Exit::done) {
        return exit;
    }
    status = reply.status;
    if (status != 0) {
        return Exit::done;
    }
    if (reply.value.size() != sizeof(word)) {
        return brokenProtocol(formatText("a value of %zu bytes in place of a word", reply.value.size()));
    }
    word = wordAt(reply.value, 0);
    return Exit::done;
}

Exit askBoard(Session& session, const std::string& request, std::vector<std::string>& lines) {
    const auto keep = [&lines](std::string_view line) {
        lines.emplace_back(line);
        return true;
    };
    std::string why;
    const LineResult result = boardRequest(request, session.timeoutMs, false, keep, why);
    return lineExit(result, "board " + request, BOARD_SOCKET_PATH, why);
}

Exit lineExit(LineResult result, const std::string& asked, const char* socket, const std::string& why) {
    if (result == LineResult::failed) {
        return unreachable(socket, why);
    }
    if (result == LineResult::refused) {
        complain(asked + ": refused: " + why);
        return Exit::refused;
    }
    return Exit::done;
}

Exit numberArgument(const char* what, const std::string& text, uint32_t& number) {
    if (parseNumber(text, number)) {
        return Exit::done;
    }
    return misuse(
        formatText("%s \"%s\" is no number: write 5 or 0x1f, up to 4294967295", what, text.c_str()));
}

Exit numberArguments(const char* what, const std::vector<std::string>& texts,
                     std::vector<uint32_t>& numbers) {
    for (const std::string& text : texts) {
        std::vector<std::string> range = expandRange(text);
        if (range.empty()) {
            range = {text};
        }
        for (const std::string& single : range) {
            uint32_t number = 0;
            const Exit exit = numberArgument(what, single, number);
            if (exit != Exit::done) {
                return exit;
            }
            numbers.push_back(number);
        }
    }
    return Exit::done;
}
