// Initialisation: turns option values into a running daemon.
#pragma once

#include <cstdint>

#include "daemon/base/state.h"

// Fills gPortIsoInfo, creates the six pools, the empty tables and the semaphore, opens and subscribes the
// route socket, starts the event task and the command server and pushes the default mode. `modeAbility` has 4
// bytes. Returns 0, or -1 after everything that had been created was released again. Runs on the main thread,
// once.
int32_t portIsolateInit(uint32_t maxIfNum, uint32_t maxIfNumPerGrp, uint32_t maxIsoGrpNum,
                        uint32_t maxUniIsoPortNum, uint32_t srcAggToPort, uint32_t dstAggToPort,
                        uint32_t supportSerial, uint32_t defaultMode, uint8_t slotCheck,
                        uint8_t vlanGroupEnable, uint8_t multiGroupCheck, const uint8_t* modeAbility);

// Pushes `defaultMode` to the platform. A failure is reported before it returns.
int32_t portIsolateDefauleModeSet();
