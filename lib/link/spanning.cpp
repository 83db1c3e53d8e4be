#include "lib/link/spanning.h"

#include "common/text.h"

namespace {

constexpr char REQUEST[] = "plane spanning";

}  // namespace

bool parseSpanning(const std::vector<std::string>& words, SpanningGroups& groups) {
    groups = 0;
    if (words.size() == 2 && words[1] == SPANNING_NONE) return true;
    for (size_t at = 1; at < words.size(); ++at) {
        if (!addSpanningWord(words[at], groups).empty()) return false;
    }
    return words.size() > 1;
}

Spanning readSpanning(Session& session) {
    Spanning spanning;
    const auto read = [&spanning](std::string_view line) {
        const std::vector<std::string> words = splitWords(line);
        SpanningGroups groups = 0;
        if (words.empty() || words[0] != SPANNING_WORD) return true;
        if (parseSpanning(words, groups)) spanning.groups = groups;
        return true;
    };
    const LineAnswer answer = session.board(REQUEST, false, read);
    if (answer.result == LineResult::failed) throw boardUnreachable(session, answer.text);
    spanning.known = answer.result == LineResult::done;
    return spanning;
}

std::string sendSpanning(Session& session, SpanningGroups groups) {
    const auto drop = [](std::string_view) { return true; };
    const LineAnswer answer = session.board(std::string(REQUEST) + " " + spanningText(groups), false, drop);
    if (answer.result == LineResult::failed) throw boardUnreachable(session, answer.text);
    return answer.text;
}
