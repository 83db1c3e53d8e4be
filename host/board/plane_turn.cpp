#include "host/board/plane_turn.h"

#include <new>

#include "host/board/this_board.h"
#include "host/services/logging.h"
#include "host/services/turns.h"

namespace {

thread_local bool tJoined = false;  // this turn has a command for the plane

}  // namespace

void joinTurn(const Board& board) {
    if (tJoined || !inTurn()) return;
    board.plane.begin(board.plane.state);
    tJoined = true;
}

void endTurn() {
    if (!tJoined) return;
    tJoined = false;
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    try {
        board.plane.end(board.plane.state);
    } catch (const std::bad_alloc&) {  // the plane shows what is missing
        reportRemark("no memory for the isolations of a request: `portisolatectl plane restore` makes them");
    }
}
