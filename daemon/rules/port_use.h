// The isolation protocol of an interface follows its use: it is enabled, and a port entry added, when the
// interface first receives any isolation configuration, and disabled again when nothing refers to it any
// more. A port entry that cannot be had, or a protocol that cannot be switched, changes nothing else.
// `operation` and `line` are the words of the texts (base/report.h). The caller holds the semaphore.
#pragma once

#include <cstdint>

// Does nothing for an interface that has a port entry.
void portUseBegin(uint32_t ifUnit, const char* operation, int32_t line);

// Does nothing while a group, a pair or an inner entry refers to the interface.
void portUseEnd(uint32_t ifUnit, const char* operation, int32_t line);
