// The process as a whole: its board, its memory, and the sockets through which an operator looks inside.
#include <malloc.h>

#include <cstdlib>

#include "host/board/board_control.h"
#include "host/board/peer_link.h"
#include "host/board/this_board.h"
#include "host/sockets/shell.h"
#include "host/start/planes.h"
#include "platform/services.h"

namespace {

constexpr size_t WORKING_MEMORY = 64 * 1024;
constexpr size_t PAGE_MIN = 4096;

// Occupies what serving takes, before it is needed and in one heap for all tasks: what the process occupies
// later does not depend on how many clients happen to be served at once. The block goes back to the heap,
// which is too small to be given back to the system.
void reserveMemory() {
    mallopt(M_ARENA_MAX, 1);
    auto* block = static_cast<volatile char*>(std::malloc(WORKING_MEMORY));
    if (block == nullptr) return;
    for (size_t at = 0; at < WORKING_MEMORY; at += PAGE_MIN) block[at] = 1;
    std::free(const_cast<char*>(block));
}

}  // namespace

int32_t procShellInit(const char*, uint32_t, uint32_t) {
    loadBoard(planeKinds());
    reserveMemory();
    const int32_t shell = startProcessShell();
    const int32_t control = startBoardControl();
    if (shell != 0 || control != 0) return -1;
    openBoardJournal();
    watchPorts();
    preparePeerLink();
    return 0;
}
