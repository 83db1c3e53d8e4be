// Bi-isolation of two ports, programmed into the hardware once and counted by group.
//
// Claims
//
// Several groups may need the same two ports kept apart, but the hardware is programmed once. The inner table
// (tables/pairs.h) holds a row for every pair of ports whose isolation stands in the hardware, with a bit for
// each group that claims it. The first claim sends the add command, further ones set their bit; the delete
// command goes out when the last bit is cleared. A row is known by its two ports alone: the command carries
// the VLAN and the group of the first claim, whatever groups claim the pair later, so that a pair shared by a
// plain and a VLAN group keeps the scope of its first claim.
//
// The order of a pair
//
// (A, B) and (B, A) are one row, with the lower ifUnit first, where both or neither of the trunk-to-port
// switches are on and the second port's ability is DAX_ABILITY_SYMMETRIC. Otherwise they are two rows, in the
// order asked for; a release at DAX_ABILITY_RESTRICTED accepts the reverse row too, and then names the ports
// in the order asked for all the same. In one-sided mode, with exactly one switch on, the ability is read for
// a release but not for an add.
//
// Self isolation
//
// A row (A, A) keeps a lone member's group in the hardware (rules/programming.h). The release of a pair of
// DAX_ABILITY_SYMMETRIC, or of a row that was found in reverse, drops the self isolation of one of its ports
// with it, without a command and whatever groups still claim it.
//
// The order of steps
//
// In one-sided mode the row comes first and stays when the command is refused, and serial numbers are not
// used on an add. Otherwise the command comes first, and a refused one leaves neither a row nor newly claimed
// serial numbers. On a release the row goes first, whatever becomes of the command. A refusal of the hardware
// is logged.
//
// Thread-safety
//
// The caller holds the semaphore. A release may remove rows of the inner table besides the pair's own: no
// entry of that table may be kept across it.
//
// Arguments are ports, or interfaces to be treated as ports; grpNo is 1 to maxIsoGrpNum, vid 0 for a plain
// group, else 1 to 4095.
#pragma once

#include <cstdint>

// 0; the status of a failed ability read or command; STATUS_FAILED without a free serial number or row;
// STATUS_POOL_EXHAUSTED when the hardware was programmed but its row could not be kept.
int32_t portIsolateAddPhyBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second);

// 0, also when no row was found or the command failed; the status of a failed ability read.
int32_t portIsolateDelPhyBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second);
