#include "host/services/fault_report.h"

#include <execinfo.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "platform/services.h"

namespace {

// The sanitizers report faults themselves, and better.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool REPORTED_BY_SANITIZER = true;
#else
constexpr bool REPORTED_BY_SANITIZER = false;
#endif
constexpr size_t FAULT_STACK_SIZE = 64 * 1024;
constexpr int FAULT_SIGNALS[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr int HARMLESS_SIGNALS[] = {SIGHUP, SIGUSR1, SIGUSR2, SIGXFSZ};
constexpr int BACKTRACE_MAX = 64;

void reportFault(int signal, siginfo_t* info, void*) {
    char task[32] = "";
    pthread_getname_np(pthread_self(), task, sizeof(task));
    char line[128];
    const int length = std::snprintf(line, sizeof(line), "fault: signal %d at address %p in task %s\n",
                                     signal, info->si_addr, task);
    if (length > 0 && write(STDERR_FILENO, line, static_cast<size_t>(length)) < 0) _exit(128 + signal);
    void* frames[BACKTRACE_MAX];
    backtrace_symbols_fd(frames, backtrace(frames, BACKTRACE_MAX), STDERR_FILENO);
    // The handler is gone after its first run, so the signal now ends the process as if it had not been
    // there.
    std::raise(signal);
}

}  // namespace

void prepareFaultStack() {
    if (REPORTED_BY_SANITIZER) return;
    void* block = mmap(nullptr, FAULT_STACK_SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) return;
    stack_t stack = {};
    stack.ss_sp = block;
    stack.ss_size = FAULT_STACK_SIZE;
    sigaltstack(&stack, nullptr);
}

void silCatchSegFault(void) {
    if (REPORTED_BY_SANITIZER) return;
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
// blocked or ignored SIGTERM a service manager from ending the process. The end of a terminal, a limit of
// file sizes (the write then fails) and the signals without a meaning do not end the process.
void patchSignalHandler(void) {
    std::signal(SIGCHLD, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    for (const int signal : HARMLESS_SIGNALS) std::signal(signal, SIG_IGN);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}
