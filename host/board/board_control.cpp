#include "host/board/board_control.h"

#include "common/text.h"
#include "host/board/board_verbs.h"
#include "host/services/streams.h"
#include "host/sockets/line_server.h"

namespace {

constexpr char BOARD_TASK[] = "boardcontrol";

LineAnswer boardRequest(int, const std::string& line) {
    const Words words = splitWords(withoutComment(line));
    if (words == Words{JOURNAL_VERB}) return {"ok\n", StreamKind::calls};
    if (words == Words{MONITOR_VERB}) return {"ok\n", StreamKind::everything};
    return {words.empty() ? "error: expected a verb; help lists them\n" : answerVerb(words), {}};
}

}  // namespace

int32_t startBoardControl(int listener) {
    return startLineServer(BOARD_TASK, listener, boardRequest);
}
