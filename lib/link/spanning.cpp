#include "lib/link/spanning.h"

#include "common/text.h"

namespace {

constexpr char REQUEST[] = "plane spanning";
constexpr char WORD[] = "spanning";

}  // namespace

Spanning readSpanning(Session& session) {
    Spanning spanning;
    const auto read = [&spanning](std::string_view line) {
        const std::vector<std::string> words = splitWords(line);
        if (words.size() < 2 || words[0] != WORD) return true;
        SpanningGroups groups = 0;
        for (size_t at = 1; at < words.size(); ++at) addSpanningWord(words[at], groups);
        spanning.groups = groups;
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
