// The platform's system services layer: options, memory pools, semaphores, tasks, the command server, the
// debug and log channels, and the route socket. Declarations only; a board's libraries (or host/) define
// them.
//
// Unless said otherwise a call returns 0 for success. Every call may be made from any task; the daemon calls
// the pools with its semaphore held, except while it starts. Arguments named `arg` have no meaning to the
// daemon.
#pragma once

#include <cstddef>
#include <cstdint>

// A fixed-size pool. Owned by the daemon, filled by silMemPoolInit; all zero means that it was never created.
struct SilMemPool {
    const char* name;
    uint8_t* base;         // first element; elements lie `stride` bytes apart
    void* freeList;        // freed elements, linked through their first bytes
    uint64_t stride;       // bytes
    uint32_t elementSize;  // bytes, as asked for
    uint32_t count;
    uint32_t untouched;  // elements from this index on were never handed out
    uint32_t freeCount;
};

// silMemPoolInit option: the elements form one array without gaps, used as a whole through `base`.
inline constexpr uint32_t SIL_MEMPOOL_ARRAY = 3;

using SilSem = void*;  // 0: none
inline constexpr int32_t SIL_WAIT_FOREVER = -1;

// Handlers of the command server, by kind. An index of an operation whose rows are keyed by a record is the
// record's address; an operation keyed by a number gets the number itself. Null stands for what was not sent.
union IcmHandler {
    int32_t (*access)(void* index, uint32_t column, void* value);           // set, sync, get
    int32_t (*accessNumber)(uint32_t index, uint32_t column, void* value);  // set, sync, get; keyed by number
    int32_t (*first)(void* index);                                          // get first
    int32_t (*next)(void* current, void* result);                           // get next
    int32_t (*nextNumber)(uint32_t current, void* result);                  // get next; keyed by number
};

struct IcmFuncMapEntry {
    uint32_t opcode;
    IcmHandler handler;
};

// The set of descriptors that dax_select waits for.
inline constexpr int32_t DAX_FD_LIMIT = 1024;
struct DaxFdSet {
    uint32_t words[DAX_FD_LIMIT / 32];
};

inline void daxFdSet(DaxFdSet& set, int32_t fd) {
    set.words[fd / 32] |= 1u << (fd % 32);
}
inline bool daxFdIsSet(const DaxFdSet& set, int32_t fd) {
    return (set.words[fd / 32] >> (fd % 32) & 1u) != 0;
}

extern "C" {

// Process set-up, on the main thread before any other task exists. silCatchSegFault is the first call of the
// process: installs a handler that reports faults. patchSignalHandler puts the platform's other handlers in
// place.
void silCatchSegFault(void);
void patchSignalHandler(void);
// Makes the process known to the process shell, through which an operator runs its exported print functions.
// They may run at any time and read the daemon's state without its semaphore.
int32_t procShellInit(const char* process, uint32_t arg1, uint32_t arg2);

// Reads an option's text into `buffer` (zeroed, capacity + 1 bytes; a longer text is cut). Returns a value >
// 0 when the key exists.
int32_t silOptRead(uint32_t arg1, const char* key, uint32_t arg3, uint32_t arg4, uint32_t arg5, char* buffer,
                   uint32_t capacity);

// Pools. `count` elements of `elementSize` bytes each; `option` is 0 or SIL_MEMPOOL_ARRAY. A pool of no
// elements is refused with a non-zero status, as is one that cannot be had. An element is given back to its
// own pool, once.
int32_t silMemPoolInit(SilMemPool* pool, const char* name, uint64_t count, uint32_t elementSize,
                       uint32_t option);
void* silMemPoolAlloc(SilMemPool* pool, uint32_t arg);  // zero-filled; null when exhausted
int32_t silMemPoolFree(SilMemPool* pool, void* element);
uint32_t silMemPoolFreeSize(const SilMemPool* pool);  // free elements
int32_t silMemPoolDestroy(SilMemPool* pool);          // leaves an all-zero pool alone

// Binary semaphore that starts available (options 1, available 1). Take with SIL_WAIT_FOREVER; not recursive.
// It is given back by the task that took it.
SilSem silCreateBSem(uint32_t options, uint32_t available);  // 0 on failure
int32_t silTakeSem(SilSem sem, int32_t wait);
int32_t silGiveSem(SilSem sem);
int32_t silDeleteSem(SilSem sem);

// Runs `entry` in a task of its own, without arguments; it may run before the call returns. `stack` in bytes.
int32_t silCreateTask(const char* name, uint32_t priority, uint32_t stack, void (*entry)(void), uint32_t arg1,
                      uint32_t arg2, uint32_t* taskId);

// Starts a task that serves the local stream socket `path`: each request's opcode picks the row of `map`
// whose handler is called. Requests are served one at a time, in order of arrival, and no handler is called
// with the daemon's semaphore held. `map` has `count` rows and stays where it is. A status is not looked at.
int32_t icmProcTcpInit(const char* task, const char* path, const IcmFuncMapEntry* map, uint32_t count);

// Hand one text to the debug or the log channel. `source` is the module number in the upper 16 bits and the
// level in the lower 16; `priority` runs from 0 (most urgent) to 7. Called with and without the semaphore.
void loggingDebugOutput(uint32_t source, uint32_t priority, uint32_t arg, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void loggingLogOutput(uint32_t source, uint32_t priority, uint32_t arg, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Route socket. dax_socket answers a descriptor below DAX_FD_LIMIT; all answer < 0 on failure, dax_setsockopt
// any non-zero value; errnoGet then tells the calling task why.
int32_t dax_socket(int32_t family, int32_t type, int32_t protocol);
int32_t dax_bind(int32_t fd, const void* address, uint32_t length);
int32_t dax_setsockopt(int32_t fd, int32_t level, int32_t option, const void* value, uint32_t length);
// Blocks until a descriptor of the set is readable, leaves only those in the set and returns their number.
// `limit` is the highest descriptor + 1. `writeSet`, `exceptSet` and `timeout` are null: not waited for, no
// time-out.
int32_t dax_select(int32_t limit, DaxFdSet* readSet, DaxFdSet* writeSet, DaxFdSet* exceptSet, void* timeout);
// One datagram, cut to `size` bytes; its length in bytes, or <= 0 on failure.
int32_t dax_recvfrom(int32_t fd, void* buffer, uint32_t size, int32_t flags, void* source,
                     uint32_t* sourceLen);
int32_t dax_close(int32_t fd);
int32_t errnoGet(void);
}

// An offer of the daemon to the debug channel, which a board may ignore: the category of the debug text that
// the calling task is handing over, 0 for a log text. Defined by the daemon.
extern thread_local uint32_t gPortIsolateTextCategory;
