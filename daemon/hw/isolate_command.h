// What the commands of bi- and uni-isolation have in common: how they are sent, and how texts name what they
// do. The caller holds the semaphore.
#pragma once

#include <cstdint>

#include "platform/hardware.h"

// Sends isolation command `attrId` to a port; `data` has `dataLen` bytes. Returns the platform's status.
int32_t isolateCommandSend(uint32_t srcIfUnit, uint32_t attrId, void* data, uint16_t dataLen);

// "add" or "del", for ISOLATE_OP_ADD and ISOLATE_OP_DEL.
const char* isolateOpText(uint8_t op);

// "ok" or "failed", as the trace names a status.
const char* isolateResultText(int32_t status);

// A port as the trace names it: "NAME", or "NAME/SERIAL" where serial numbers are in use.
struct IsolatePortText {
    char text[140];
};
IsolatePortText isolatePortText(uint32_t ifUnit, bool withSerial, uint16_t serial);

// Tells the operator of a command that the hardware refused; `type` as the log names the kind of isolation.
void isolateLogRefusal(uint32_t src, uint32_t dst, uint32_t vid, const char* type, uint32_t grpNo,
                       uint8_t op);
