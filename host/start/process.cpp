// The process as a whole: its board, its memory, and the sockets through which an operator looks inside.
#include <malloc.h>

#include <csignal>
#include <cstdlib>

#include "common/config_file.h"
#include "common/files.h"
#include "host/board/board_control.h"
#include "host/board/journal.h"
#include "host/board/membership.h"
#include "host/board/peer_link.h"
#include "host/board/plane_turn.h"
#include "host/board/this_board.h"
#include "host/services/logging.h"
#include "host/services/options.h"
#include "host/services/privileges.h"
#include "host/services/turns.h"
#include "host/sockets/listening.h"
#include "host/sockets/run_folder.h"
#include "host/sockets/shell.h"
#include "host/start/arguments.h"
#include "host/start/planes.h"
#include "platform/services.h"
#include "wire/framing.h"

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

// The mistakes of the saved configuration, reported. They keep no daemon from starting: their lines are
// pending.
size_t mistakesSaved() {
    const std::string path = rootedPath(SAVED_FILE);
    std::string text;
    std::string problem;
    if (!readRegularFile(path, text, problem)) {
        if (!problem.empty()) hostReport("{}: {}", path, problem);
        return problem.empty() ? 0 : 1;
    }
    const ConfigFile file = parseConfig(text);
    for (const Mistake& mistake : file.mistakes) {
        hostReport("{}:{}:{}: {}", path, mistake.place.line, mistake.place.column, mistake.text);
    }
    return file.mistakes.size();
}

// A typing error must not open a port: with a line that cannot be read there is no daemon, unless the
// operator says otherwise.
void readConfiguration(const Arguments& arguments) {
    const uint32_t rejected = loadBoard(planeKinds()) + rejectedOptions();
    if (arguments.check) {
        const bool fine = mistakesSaved() == 0 && rejected == 0;
        if (fine) hostReport("board.conf, portisolate.conf and the saved configuration are fine");
        std::_Exit(fine ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    if (rejected == 0) return;
    if (arguments.lenient) return hostReport("{} lines are left out", rejected);
    hostReport(
        "the daemon does not start with {} lines that it cannot read: correct them, or start it with "
        "--lenient",
        rejected);
    refuseStart();
}

// What rotates the journal moves it away and sends this signal.
void reopenJournalOnHangup() {
    struct sigaction reopen = {};
    reopen.sa_handler = [](int) { reopenJournalFile(); };
    reopen.sa_flags = SA_RESTART;
    sigaction(SIGHUP, &reopen, nullptr);
}

}  // namespace

// The daemon goes on whatever is answered, so a process that lacks what it needs ends here. The lock comes
// first: a second daemon must touch neither the sockets nor the forwarding plane of the first.
int32_t procShellInit(const char*, uint32_t, uint32_t) {
    const Arguments arguments = readArguments();
    if (arguments.check) readConfiguration(arguments);
    if (!dropPrivileges() || !claimRunFolder()) refuseStart();
    const int shell = listenLocalSocket(rootedPath(SHELL_SOCKET_PATH));
    const int control = shell < 0 ? -1 : listenLocalSocket(rootedPath(BOARD_SOCKET_PATH));
    if (control < 0) refuseStart();
    readConfiguration(arguments);
    adoptPorts();
    atTurnsEnd(endTurn);
    followMembers();
    reserveMemory();
    if (startProcessShell(shell) != 0 || startBoardControl(control) != 0) refuseStart();
    openBoardJournal();
    reopenJournalOnHangup();
    watchPorts();
    preparePeerLink();
    return 0;
}
