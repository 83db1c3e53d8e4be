#include "host/board/board_control.h"

#include "common/text.h"
#include "host/board/board_verbs.h"
#include "host/services/streams.h"
#include "host/sockets/line_server.h"

namespace {

constexpr char BOARD_TASK[] = "boardcontrol";

LineAnswer boardRequest(const LineRequest& request) {
    const Words words = splitWords(withoutComment(request.line));
    if (words == Words{JOURNAL_VERB}) return {"ok\n", StreamKind::calls};
    if (words == Words{MONITOR_VERB}) return {"ok\n", StreamKind::everything};
    if (words == Words{MONITOR_VERB, MONITOR_CHANGES}) return {"ok\n", StreamKind::changes};
    if (words.empty()) return {"error: expected a verb; help lists them\n", {}};
    return {answerVerb(words, request.process.mayChange), {}};
}

}  // namespace

int32_t startBoardControl(int listener) {
    return startLineServer(BOARD_TASK, listener, boardRequest);
}
