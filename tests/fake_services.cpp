#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <set>

#include "daemon/base/state.h"
#include "platform/route_messages.h"
#include "platform/services.h"
#include "tests/fake_platform.h"

namespace {

constexpr int32_t ROUTE_SOCKET = 7;

std::set<void*> liveElements;
std::jmp_buf taskEnd;  // where the event task goes when there is nothing more to deliver

}  // namespace

void runTask() {
    if (setjmp(taskEnd) == 0) fake.task();
}

void forgetPools() {
    std::free(gPortIsoInfo.ifSerialPool.base);
    for (void* element : liveElements) std::free(element);
    liveElements.clear();
}

int32_t silOptRead(uint32_t first, const char* key, uint32_t third, uint32_t fourth, uint32_t fifth,
                   char* buffer, uint32_t capacity) {
    EXPECT_TRUE(first == 0 && third == 0 && fourth == 0 && fifth == 1);
    EXPECT_TRUE(std::all_of(buffer, buffer + capacity + 1, [](char byte) { return byte == 0; }));
    constexpr std::string_view PREFIX = "portisolate.";
    EXPECT_TRUE(std::string_view(key).starts_with(PREFIX));
    const auto found = fake.options.find(key + PREFIX.size());
    if (found == fake.options.end()) return 0;
    std::snprintf(buffer, capacity + 1, "%s", found->second.c_str());
    return static_cast<int32_t>(std::strlen(buffer));
}

int32_t silMemPoolInit(SilMemPool* pool, const char* name, uint64_t count, uint32_t elementSize,
                       uint32_t option) {
    const int32_t status = faultOf(std::string("silMemPoolInit ") + name);
    if (status != 0 || count == 0 || count * elementSize > (1u << 26)) return -1;
    const auto elements = static_cast<uint32_t>(count);
    record(words("pool %s %u x %u option %u", name, elements, elementSize, option));
    void* array = option == SIL_MEMPOOL_ARRAY ? std::calloc(elements, elementSize) : nullptr;
    *pool = {name, static_cast<uint8_t*>(array), nullptr, elementSize, elementSize, elements, 0, elements};
    return 0;
}

void* silMemPoolAlloc(SilMemPool* pool, uint32_t argument) {
    EXPECT_EQ(argument, 0u);
    if (pool->freeCount == 0 || faultOf(std::string("pool ") + pool->name) != 0) return nullptr;
    --pool->freeCount;
    ++fake.poolsInUse[pool->name];
    return *liveElements.insert(std::calloc(1, pool->elementSize)).first;
}

int32_t silMemPoolFree(SilMemPool* pool, void* element) {
    EXPECT_EQ(liveElements.erase(element), 1u) << "freed twice, or not of a pool: " << pool->name;
    ++pool->freeCount;
    --fake.poolsInUse[pool->name];
    std::free(element);
    return 0;
}

uint32_t silMemPoolFreeSize(const SilMemPool* pool) {
    return pool->freeCount;
}

int32_t silMemPoolDestroy(SilMemPool* pool) {
    if (pool->name == nullptr) return 0;
    record(words("pool %s destroyed", pool->name));
    std::free(pool->base);
    *pool = {};
    return 0;
}

SilSem silCreateBSem(uint32_t first, uint32_t second) {
    EXPECT_TRUE(first == 1 && second == 1);
    return record("semaphore", faultOf("silCreateBSem")) == 0 ? &fake.semTaken : nullptr;
}

int32_t silTakeSem(SilSem, int32_t wait) {
    EXPECT_EQ(wait, SIL_WAIT_FOREVER);
    EXPECT_FALSE(fake.semTaken) << "the semaphore was taken twice";
    fake.semTaken = true;
    ++fake.semTakes;
    return 0;
}

int32_t silGiveSem(SilSem) {
    EXPECT_TRUE(fake.semTaken);
    fake.semTaken = false;
    return 0;
}

int32_t silDeleteSem(SilSem) {
    return record("semaphore destroyed");
}

int32_t silCreateTask(const char* name, uint32_t priority, uint32_t stack, void (*entry)(void),
                      uint32_t fifth, uint32_t sixth, uint32_t*) {
    EXPECT_TRUE(fifth == 0 && sixth == 0);
    fake.task = entry;
    return record(words("task %s %u %u", name, priority, stack), faultOf("silCreateTask"));
}

int32_t icmProcTcpInit(const char* task, const char* path, const IcmFuncMapEntry* map, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) EXPECT_EQ(map[i].opcode, i);
    return record(words("command server %s %s %u", task, path, count), faultOf("icmProcTcpInit"));
}

int32_t dax_socket(int32_t family, int32_t type, int32_t protocol) {
    const int32_t status = record(words("socket %d %d %d", family, type, protocol), faultOf("dax_socket"));
    return status != 0 ? -1 : ROUTE_SOCKET;
}

int32_t dax_bind(int32_t fd, const void* address, uint32_t length) {
    const uint32_t family = static_cast<const uint8_t*>(address)[1];
    return record(words("bind %d family %u length %u", fd, family, length), faultOf("dax_bind")) != 0 ? -1
                                                                                                      : 0;
}

int32_t dax_setsockopt(int32_t fd, int32_t level, int32_t option, const void* value, uint32_t) {
    uint32_t word = 0;
    std::memcpy(&word, value, sizeof(word));
    return record(words("setsockopt %d %d %d %u", fd, level, option, word), faultOf("dax_setsockopt"));
}

int32_t dax_select(int32_t limit, DaxFdSet* readSet, DaxFdSet*, DaxFdSet*, void*) {
    EXPECT_EQ(limit, ROUTE_SOCKET + 1);
    EXPECT_FALSE(fake.semTaken);
    if (fake.datagrams.empty()) std::longjmp(taskEnd, 1);
    if (faultOf("dax_select") != 0) return -1;
    return daxFdIsSet(*readSet, ROUTE_SOCKET) ? 1 : 0;
}

int32_t dax_recvfrom(int32_t fd, void* buffer, uint32_t size, int32_t flags, void*, uint32_t* sourceLength) {
    EXPECT_TRUE(fd == ROUTE_SOCKET && flags == 0 && *sourceLength == DAX_ROUTE_ADDRESS_LEN);
    if (faultOf("dax_recvfrom") != 0) return -1;
    const Bytes datagram = fake.datagrams.front();
    fake.datagrams.erase(fake.datagrams.begin());
    const size_t bytes = std::min<size_t>(size, datagram.size());
    std::copy_n(datagram.begin(), bytes, static_cast<uint8_t*>(buffer));
    return static_cast<int32_t>(bytes);
}

int32_t dax_close(int32_t fd) {
    return record(words("close %d", fd));
}

int32_t errnoGet(void) {
    return 99;
}
