#include "daemon/base/report.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

const uint8_t gPortIsolateLogPri[8] = {5, 2, 5, 6, 3, 7, 5, 5};
thread_local uint32_t gPortIsolateTextCategory = 0;

namespace {

constexpr uint32_t MODULE_SOURCE = 0x03EB0000;  // module number in the upper half, level in the lower
constexpr uint32_t TEXT_SIZE = 256;             // longer texts are cut to fit
constexpr uint32_t MAX_PROTO = 384;             // last number of the platform's protocol catalogue

using LoggingOutput = void (*)(uint32_t, uint32_t, uint32_t, const char*, ...);

void writeText(LoggingOutput output, uint32_t level, uint32_t category, const char* format, va_list args) {
    char text[TEXT_SIZE];
    if (std::vsnprintf(text, sizeof(text), format, args) < 0) return;
    gPortIsolateTextCategory = category;
    output(MODULE_SOURCE | level, gPortIsolateLogPri[level], 0, "%s", text);
    gPortIsolateTextCategory = 0;
}

}  // namespace

bool portIsolateDebugOn(uint32_t category) {
    return (std::atomic_ref(gPortIsoInfo.debugMask).load(std::memory_order_relaxed) & category) != 0;
}

void portIsolateDebugMaskSet(uint32_t mask) {
    std::atomic_ref(gPortIsoInfo.debugMask).store(mask, std::memory_order_relaxed);
}

void portIsolateDebug(uint32_t level, uint32_t category, const char* format, ...) {
    if (!portIsolateDebugOn(category)) return;
    va_list args;
    va_start(args, format);
    writeText(loggingDebugOutput, level, category, format, args);
    va_end(args);
}

void portIsolateLog(uint32_t level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    writeText(loggingLogOutput, level, 0, format, args);
    va_end(args);
}

const char* protoId2Name(uint32_t id) {
    if (id == DAX_PROTO_PORT_ISOLATE) return "port-isolate";
    if (id == MAX_PROTO) return "max-proto";
    return "unknown";
}
