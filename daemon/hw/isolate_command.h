// What the commands of bi- and uni-isolation have in common.
#pragma once

#include <cstdint>

#include "platform/hardware.h"

// Sends isolation command `attrId` to a port; `data` has `dataLen` bytes. Returns the platform's status.
int32_t isolateCommandSend(uint32_t srcIfUnit, uint32_t attrId, void* data, uint16_t dataLen);

// "ok" or "failed", as the trace names a status.
const char* isolateResultText(int32_t status);
