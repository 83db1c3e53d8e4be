#include "host/board/board_control.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "common/text.h"
#include "host/board/board_verbs.h"
#include "host/services/streams.h"
#include "host/sockets/line_server.h"

namespace {

constexpr char BOARD_TASK[] = "boardcontrol";

void streamLines(int client, StreamKind kind) {
    const auto stream = openStream(kind);
    if (stream == nullptr) {
        answerClient(client, "error: the daemon has no file descriptor left\n");
        return;
    }
    // Nothing is expected of the client but its end; one that closed its sending side goes on listening.
    for (bool open = answerClient(client, "ok\n"); open;) {
        pollfd polled[] = {{stream->fd, POLLIN, 0}, {client, 0, 0}};
        if (poll(polled, 2, -1) < 0 && errno != EINTR) break;
        open = polled[1].revents == 0 && answerClient(client, takeLines(*stream));
    }
    closeStream(stream);
}

void boardRequest(int client, const std::string& line) {
    const Words words = splitWords(withoutComment(line));
    if (words == Words{JOURNAL_VERB}) return streamLines(client, StreamKind::calls);
    if (words == Words{MONITOR_VERB}) return streamLines(client, StreamKind::everything);
    answerClient(client, words.empty() ? "error: expected a verb; help lists them\n" : answerVerb(words));
}

}  // namespace

int32_t startBoardControl(int listener) {
    return startLineServer(BOARD_TASK, listener, boardRequest);
}
