// Debug and log output. Debug texts are developer trace, written only for the categories of the debug mask;
// log texts are for the operator and always written. Each text names its operation, quotes a failing status
// last and carries its own line end. A text longer than 255 characters is cut. Callable from any task, with
// or without the semaphore.
//
// Some texts read "[OPERATION]line N: ...". Operation and number are words of the text like all others: they
// are fixed, operators and their tools search for them, and N is the line of no source file here.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"
#include "platform/hardware.h"
#include "wire/scalars.h"

// Levels in use; each selects a priority.
inline constexpr uint32_t LEVEL_FAILURE = 0;    // initialisation, settings, mirroring, hardware programming
inline constexpr uint32_t LEVEL_PARAMETER = 1;  // parameter errors of requests
inline constexpr uint32_t LEVEL_EVENT = 3;      // route-socket events
inline constexpr uint32_t LEVEL_MEMBERS = 4;    // a trunk's member ports could not be read
inline constexpr uint32_t LEVEL_TRACE = 5;      // table and hardware changes
inline constexpr uint32_t LEVEL_PROTOCOL = 7;   // a protocol that could not be switched off

extern "C" const uint8_t gPortIsolateLogPri[8];  // priority of each level

void portIsolateDebug(uint32_t level, uint32_t category, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void portIsolateLog(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The debug mask, one word that is read and written atomically, with or without the semaphore.
bool portIsolateDebugOn(uint32_t category);
void portIsolateDebugMaskSet(uint32_t mask);

// portIsolateDebug for texts that name interfaces: the arguments are evaluated, and so the names looked up,
// only when the text is going to be written.
#define PORT_ISOLATE_TRACE(level, category, ...)                                              \
    do {                                                                                      \
        if (portIsolateDebugOn(category)) portIsolateDebug((level), (category), __VA_ARGS__); \
    } while (0)

// An interface's name as an argument of a text: portIsolateDebug(..., ifName(unit).text).
template <uint32_t Size = 128>
struct IfName {
    char text[Size];
};
template <uint32_t Size = 128>
IfName<Size> ifName(uint32_t ifUnit) {
    IfName<Size> name = {};
    daxIfUnit2Name(ifUnit, name.text, Size);
    return name;
}

// The platform's name of a protocol number. The daemon quotes its own only.
const char* protoId2Name(uint32_t id);
