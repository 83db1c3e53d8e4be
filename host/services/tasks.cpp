// Semaphores and tasks. A semaphore serves its waiters in the order in which they came, which neither the
// library's mutex nor its semaphore promises: so a flood of requests cannot keep the event task from its
// turn.
#include <pthread.h>

#include <atomic>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>

#include "host/services/fault_report.h"
#include "host/services/turns.h"
#include "platform/services.h"

namespace {

constexpr size_t STACK_RESERVE = 256 * 1024;
constexpr size_t TASK_NAME_MAX = 15;

void (*gTurnsEnd)() = nullptr;
thread_local bool tInTurn = false;

struct BinarySem {
    std::mutex lock;  // guards what follows
    std::condition_variable turn;
    uint64_t nextTicket = 0;  // of the next taker
    uint64_t serving = 0;  // the ticket that may hold the semaphore; equals nextTicket while it is available
    pthread_t holder = {};
};

bool isHeld(const BinarySem& sem) {
    return sem.nextTicket != sem.serving;
}

#ifndef NDEBUG
void stopWhen(bool wrong, const char* what) {
    if (!wrong) return;
    std::fprintf(stderr, "semaphore: %s\n", what);
    std::abort();
}
#endif

struct TaskStart {
    std::string name;
    void (*entry)(void);
};

void* runTask(void* argument) {
    TaskStart start = std::move(*static_cast<TaskStart*>(argument));
    delete static_cast<TaskStart*>(argument);
    pthread_setname_np(pthread_self(), start.name.substr(0, TASK_NAME_MAX).c_str());
    prepareFaultStack();
    start.entry();
    return nullptr;
}

}  // namespace

bool inTurn() {
    return tInTurn;
}

void atTurnsEnd(void (*work)()) {
    gTurnsEnd = work;
}

SilSem silCreateBSem(uint32_t, uint32_t available) {
    auto* sem = new (std::nothrow) BinarySem;
    if (sem != nullptr && available == 0) sem->nextTicket = 1;
    return sem;
}

int32_t silTakeSem(SilSem handle, int32_t wait) {
    if (handle == nullptr) return -1;
    auto& sem = *static_cast<BinarySem*>(handle);
    std::unique_lock guard(sem.lock);
#ifndef NDEBUG
    stopWhen(isHeld(sem) && pthread_equal(sem.holder, pthread_self()) != 0, "taken twice by one task");
#endif
    // The daemon waits for ever; any other wait is served as a mere attempt.
    if (wait != SIL_WAIT_FOREVER && isHeld(sem)) return -1;
    const uint64_t ticket = sem.nextTicket++;
    sem.turn.wait(guard, [&] { return sem.serving == ticket; });
    sem.holder = pthread_self();
    tInTurn = true;
    return 0;
}

int32_t silGiveSem(SilSem handle) {
    if (handle == nullptr) return -1;
    if (tInTurn && gTurnsEnd != nullptr) gTurnsEnd();
    tInTurn = false;
    auto& sem = *static_cast<BinarySem*>(handle);
    std::lock_guard guard(sem.lock);
#ifndef NDEBUG
    stopWhen(!isHeld(sem) || pthread_equal(sem.holder, pthread_self()) == 0,
             "given by a task that does not hold it");
#endif
    if (!isHeld(sem)) return 0;
    ++sem.serving;
    sem.holder = {};
    if (isHeld(sem)) sem.turn.notify_all();
    return 0;
}

int32_t silDeleteSem(SilSem handle) {
    delete static_cast<BinarySem*>(handle);
    return 0;
}

int32_t silCreateTask(const char* name, uint32_t, uint32_t stack, void (*entry)(void), uint32_t, uint32_t,
                      uint32_t* taskId) {
    static std::atomic<uint32_t> created = 0;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return -1;
    const size_t least = static_cast<size_t>(PTHREAD_STACK_MIN) + STACK_RESERVE;
    pthread_attr_setstacksize(&attributes, stack > least ? (stack + 4095u) / 4096u * 4096u : least);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);

    auto* start = new (std::nothrow) TaskStart{name, entry};
    pthread_t thread = {};
    const int result = start == nullptr ? -1 : pthread_create(&thread, &attributes, runTask, start);
    pthread_attr_destroy(&attributes);
    if (result != 0) {
        delete start;
        return result;
    }
    if (taskId != nullptr) *taskId = ++created;
    return 0;
}
