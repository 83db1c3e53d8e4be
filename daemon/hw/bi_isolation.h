// Bi-isolation of two ports, programmed into the hardware once and counted by group.
//
// The inner table holds a row for every pair of ports whose isolation stands in the hardware, with a bit for
// each group that claims it. The first claim sends the add command, further ones set their bit; the delete
// command goes out with the last bit. The row's key is the pair of ports alone: the command carries the VLAN
// and the group of the first claim, whoever claims the pair later.
//
// Arguments are ports, or interfaces to be treated as ports; grpNo is 1 to maxIsoGrpNum, vid 0 for a plain
// group. The caller holds the semaphore.
#pragma once

#include <cstdint>

// 0; the status of a failed ability read or command; STATUS_FAILED without a free serial number or row;
// STATUS_POOL_EXHAUSTED when the hardware was programmed but its row could not be kept.
int32_t portIsolateAddPhyBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second);

// 0, also when no row was found or the command failed; the status of a failed ability read.
int32_t portIsolateDelPhyBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second);
