#include "lib/link/forward.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

ForwardAnswer ask(Session& session, const std::string& ends, uint32_t vlan) {
    const std::string within = vlan != 0 ? fmt::format(" {}", vlan) : "";
    const std::vector<std::string> lines = askBoard(session, "forward " + ends + within);
    if (lines.size() != 1) throw brokenProtocol("no single answer to a question");
    const std::string& line = lines[0];
    const size_t blank = std::min(line.find(' '), line.size());
    ForwardAnswer answer = {
        .line = line, .word = line.substr(0, blank), .reason = line.substr(std::min(blank + 1, line.size()))};
    if (answer.word == "yes" || answer.word == "no" || answer.word == "partly") return answer;
    throw brokenProtocol("no single answer to a question");
}

}  // namespace

ForwardAnswer askForward(Session& session, uint32_t from, uint32_t to, uint32_t vlan) {
    return ask(session, fmt::format("{} {}", from, to), vlan);
}

ForwardAnswer askRemoteForward(Session& session, SpanningGroups groups, uint32_t to, uint32_t vlan) {
    return ask(session, fmt::format("remote {} {}", to, fmt::join(spanningNumbers(groups), ",")), vlan);
}
