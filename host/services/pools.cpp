// Memory pools: one block each, mapped at once and made resident element by element as elements are first
// handed out, so a limit that is set high costs nothing until it is used. Behind the elements the block holds
// one bit per element, set while it is in use, so that a double free and a foreign address are refused in
// constant time; builds with assertions report them and stop.
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/services.h"

namespace {

constexpr uint64_t POOL_MAX = 1ull << 30;  // bytes
constexpr uint8_t POISON = 0xA5;

uint64_t roundUp(uint64_t value, uint64_t unit) {
    return (value + unit - 1) / unit * unit;
}

uint64_t elementBytes(const SilMemPool* pool) {
    return roundUp(pool->stride * pool->count, alignof(void*));
}

uint64_t blockBytes(const SilMemPool* pool) {
    return elementBytes(pool) + (pool->count + 7ull) / 8;
}

uint8_t& useByte(const SilMemPool* pool, uint64_t index) {
    return pool->base[elementBytes(pool) + index / 8];
}

uint8_t useMask(uint64_t index) {
    return static_cast<uint8_t>(1u << (index % 8));
}

int32_t misuse([[maybe_unused]] const SilMemPool* pool, [[maybe_unused]] const char* what,
               [[maybe_unused]] const void* element) {
#ifndef NDEBUG
    std::fprintf(stderr, "pool %s: %s: %p\n", pool->name, what, element);
    std::abort();
#else
    return -1;
#endif
}

}  // namespace

int32_t silMemPoolInit(SilMemPool* pool, const char* name, uint64_t count, uint32_t elementSize,
                       uint32_t option) {
    // An array holds no free list, so its elements need no room for a link.
    const bool array = option == SIL_MEMPOOL_ARRAY;
    const uint64_t stride = array ? elementSize : roundUp(elementSize == 0 ? 1 : elementSize, alignof(void*));
    if (pool == nullptr || count == 0 || stride == 0 || count > POOL_MAX / stride) return -1;

    const SilMemPool fresh = {
        .name = name,
        .base = nullptr,
        .freeList = nullptr,
        .stride = stride,
        .elementSize = elementSize,
        .count = static_cast<uint32_t>(count),
        .untouched = 0,
        .freeCount = static_cast<uint32_t>(count),
    };
    void* block = mmap(nullptr, static_cast<size_t>(blockBytes(&fresh)), PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (block == MAP_FAILED) return -1;
    *pool = fresh;
    pool->base = static_cast<uint8_t*>(block);
    return 0;
}

void* silMemPoolAlloc(SilMemPool* pool, uint32_t) {
    if (pool->freeCount == 0 || pool->stride < sizeof(void*)) return nullptr;
    uint8_t* element = static_cast<uint8_t*>(pool->freeList);
    if (element != nullptr) {
        std::memcpy(&pool->freeList, element, sizeof(pool->freeList));
        std::memset(element, 0, static_cast<size_t>(pool->stride));
    } else {
        element = pool->base + pool->stride * pool->untouched;
        ++pool->untouched;
    }
    --pool->freeCount;
    const uint64_t index = static_cast<uint64_t>(element - pool->base) / pool->stride;
    useByte(pool, index) |= useMask(index);
    return element;
}

int32_t silMemPoolFree(SilMemPool* pool, void* element) {
    auto* bytes = static_cast<uint8_t*>(element);
    if (bytes < pool->base || bytes >= pool->base + pool->stride * pool->untouched ||
        static_cast<uint64_t>(bytes - pool->base) % pool->stride != 0) {
        return misuse(pool, "freed address is no element of it", element);
    }
    const uint64_t index = static_cast<uint64_t>(bytes - pool->base) / pool->stride;
    if ((useByte(pool, index) & useMask(index)) == 0) return misuse(pool, "element freed twice", element);

    useByte(pool, index) &= static_cast<uint8_t>(~useMask(index));
#ifndef NDEBUG
    std::memset(bytes, POISON, static_cast<size_t>(pool->stride));
#endif
    std::memcpy(bytes, &pool->freeList, sizeof(pool->freeList));
    pool->freeList = element;
    ++pool->freeCount;
    return 0;
}

uint32_t silMemPoolFreeSize(const SilMemPool* pool) {
    return pool->freeCount;
}

int32_t silMemPoolDestroy(SilMemPool* pool) {
    if (pool->base == nullptr) return 0;
    const int result = munmap(pool->base, static_cast<size_t>(blockBytes(pool)));
    *pool = {};
    return result;
}
