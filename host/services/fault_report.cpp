#include "host/services/fault_report.h"

#include <execinfo.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "host/board/board_control.h"
#include "host/board/this_board.h"
#include "host/linux/link_watch.h"
#include "host/sockets/shell.h"
#include "platform/services.h"

// The sanitizers report faults themselves, and better.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define FAULTS_ARE_REPORTED_ELSEWHERE 1
#else
#define FAULTS_ARE_REPORTED_ELSEWHERE 0
#endif

namespace {
constexpr size_t FAULT_STACK_SIZE = 64 * 1024;
constexpr size_t WORKING_MEMORY = 64 * 1024;
constexpr size_t PAGE_MIN = 4096;
constexpr int FAULT_SIGNALS[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr int BACKTRACE_MAX = 64;

void reportFault(int signal, siginfo_t* info, void*) {
    char task[32] = "";
    pthread_getname_np(pthread_self(), task, sizeof task);
    char line[128];
    const int length = snprintf(line, sizeof line, "fault: signal %d at address %p in task %s\n", signal,
                                info->si_addr, task);
    if (length > 0 && write(STDERR_FILENO, line, static_cast<size_t>(length)) < 0) _exit(128 + signal);
    void* frames[BACKTRACE_MAX];
    backtrace_symbols_fd(frames, backtrace(frames, BACKTRACE_MAX), STDERR_FILENO);
    // The handler is gone after its first run, so the signal now ends the process as if it had not been
    // there.
    raise(signal);
}

// Occupies what serving takes, before it is needed and in one heap for all tasks: what the process occupies
// later does not depend on how many clients happen to be served at once. The block goes back to the heap,
// which is too small to be given back to the system.
void reserveMemory() {
    mallopt(M_ARENA_MAX, 1);
    auto* block = static_cast<volatile char*>(malloc(WORKING_MEMORY));
    if (block == nullptr) return;
    for (size_t at = 0; at < WORKING_MEMORY; at += PAGE_MIN) block[at] = 1;
    free(const_cast<char*>(block));
}
}  // namespace

void prepareFaultStack() {
    if (FAULTS_ARE_REPORTED_ELSEWHERE) return;
    void* block = mmap(nullptr, FAULT_STACK_SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) return;
    stack_t stack = {};
    stack.ss_sp = block;
    stack.ss_size = FAULT_STACK_SIZE;
    sigaltstack(&stack, nullptr);
}

void silCatchSegFault(void) {
    if (FAULTS_ARE_REPORTED_ELSEWHERE) return;
    prepareFaultStack();
    void* frame = nullptr;
    backtrace(&frame, 1);  // loads what the first backtrace needs, while memory may still be taken
    struct sigaction action = {};
    action.sa_sigaction = reportFault;
    action.sa_flags = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    for (const int signal : FAULT_SIGNALS) sigaction(signal, &action, nullptr);
}

// Undoes what a starter may have left behind: an ignored SIGCHLD would keep children from being reaped, a
// blocked or ignored SIGTERM a service manager from ending the process.
void patchSignalHandler(void) {
    signal(SIGCHLD, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

int32_t procShellInit(const char*, uint32_t, uint32_t) {
    loadBoard();
    reserveMemory();
    const int32_t shell = startProcessShell();
    const int32_t control = startBoardControl();
    if (shell != 0 || control != 0) return -1;
    openBoardJournal();
    watchLinuxBoard();
    return 0;
}
