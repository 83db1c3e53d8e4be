#include "host/board/this_board.h"

#include <chrono>
#include <cstring>

#include "common/files.h"
#include "host/board/board_file.h"
#include "host/board/journal.h"
#include "host/services/logging.h"
#include "host/sockets/command_server.h"

namespace {

constexpr char BOARD_FILE[] = "/etc/portisolate/board.conf";

}  // namespace

Board& theBoard() {
    // Never destroyed: tasks use it until the process ends.
    static Board& board = *new Board;
    return board;
}

uint32_t loadBoard(PlaneKinds kinds) {
    Board& board = theBoard();
    const std::string path = rootedPath(BOARD_FILE);
    std::string text;
    std::string problem;
    if (!readRegularFile(path, text, problem)) {
        if (!problem.empty()) {
            hostReport("the daemon does not start: {}: {}", path, problem);
            refuseStart();
        }
        hostReport("the board has no interfaces: there is no description {}", path);
    }
    std::lock_guard guard(board.lock);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    board.started = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    readBoard(text, path.c_str(), kinds, board);
    expectPeer(peerPath(board));
    return board.rejected;
}

void adoptPorts() {
    Board& board = theBoard();
    if (board.follower != nullptr) return board.follower->start(board);
    hostReport("the plane {} is simulated: it isolates no real port", board.plane.name);
}

void openBoardJournal() {
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    if (board.journalFile.empty()) return;
    const std::string journal = rootedPath(board.journalFile.c_str());
    const int problem = openJournalFile(journal);
    if (problem != 0) hostReport("no journal: {}: {}", journal, std::strerror(problem));
}

void watchPorts() {
    const PortFollower* follower = theBoard().follower;
    if (follower != nullptr) follower->watch();
}
