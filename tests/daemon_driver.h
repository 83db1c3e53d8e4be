// The daemon proper over the fake platform: its start, requests as the command server makes them, and route
// messages.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

// What nearly every test of the daemon needs beside.
#include "daemon/base/report.h"
#include "daemon/base/state.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "tests/fake_platform.h"
#include "wire/operations.h"
#include "wire/records.h"
#include "wire/scalars.h"
#include "wire/status.h"

// A fresh fake with these options and a daemon started on it; the calls and texts of the start are kept, and
// a fault set before it holds. Returns the status of the start. The options are taken by value: they may be
// those of the fake.
int32_t startDaemon(Options options = {});
// The same for a start that must succeed and leaves no trace; texts of these categories are written from then
// on.
void startWatched(uint32_t categories, const Options& options = {});
Options trunkSwitches(bool src, bool dst);

// The rows of a table, in its order.
template <typename Entry>
std::vector<Entry*> rowsOf(const Table<Entry>& table) {
    std::vector<Entry*> rows;
    for (Entry* row = tableFirst(table); row != nullptr; row = tableNext(table, row)) rows.push_back(row);
    return rows;
}

// What the command server calls for an operation. Of a get next, `value` takes the result.
int32_t perform(uint32_t opcode, uint32_t* index, uint32_t column, void* value);
// Row status requests, and their sequence of create and activate.
int32_t groupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp);
int32_t vlanGroupSet(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp, uint32_t vlan);
int32_t pairSet(uint32_t rowStatus, uint32_t src, uint32_t dst);
int32_t ponSet(uint32_t vlan, uint32_t state);
int32_t groupJoin(uint32_t ifUnit, uint32_t grp);
int32_t vlanGroupJoin(uint32_t ifUnit, uint32_t grp, uint32_t vlan);
int32_t pairJoin(uint32_t src, uint32_t dst);

template <typename Record>
Bytes bytesOf(const Record& record) {
    const auto* raw = reinterpret_cast<const uint8_t*>(&record);
    return {raw, raw + sizeof(record)};
}
// A message or an attribute that says another length.
template <typename Length>
Bytes claiming(Length length, Bytes bytes) {
    std::memcpy(bytes.data(), &length, sizeof(length));
    return bytes;
}
Bytes linkMessage(uint16_t type, uint32_t ifUnit, uint32_t changeMask = 0, const Bytes& attributes = {});
Bytes attribute(uint16_t type, uint32_t value);
Bytes plainMessage(uint16_t type, const Bytes& payload = {});
Bytes operator+(Bytes a, const Bytes& b);  // each message padded to a multiple of 4
void deliver(const Bytes& datagram);       // to the daemon, under the semaphore
