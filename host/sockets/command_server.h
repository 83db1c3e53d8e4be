// The command server: serves the daemon's operation table on a local stream socket, in the format of
// wire/framing.h (icmProcTcpInit of platform/services.h starts it). One task with poll serves all clients,
// each in the order of its requests.
//
// Fairness
// --------
// No client holds up another: nobody is waited for, each client is served a bounded number of requests in
// turn, and one that does not read its replies is not read from until it does. A client costs no more memory
// than one reading and a bounded amount of unsent replies. The loop is written out here, since this order of
// service is what the loops of libraries for events leave to chance.
//
// Peers
// -----
// A client that mirrors the settings of a peer board comes first: the request of an ordinary client may have
// to wait for room on the way to the peer, and the peer has room as long as what it sends is taken in
// between. A client is recognised as a peer by its first request.
//
// Thread-safety
// -------------
// The server's record and its clients belong to its one task. Handlers run in that task, one at a time, with
// no lock held. expectPeer may be called by any task. answerRequest keeps nothing between two calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/services.h"

// Rows in any order; opcodes that are in none, or whose handler is null, have no handler.
struct OperationTable {
    const IcmFuncMapEntry* rows;
    uint32_t count;
};

// Whether a peer board may connect: what it has sent by then is carried out before the request of anybody
// else. Not expected at first.
void expectPeer(bool expected);

// Carries out one request, `length` bytes behind the frame's length word (isFrameLength holds of it), and
// appends the reply frame.
void answerRequest(const OperationTable& table, const uint8_t* request, size_t length, std::string& replies);

// Whether a frame may have this length at all.
bool isFrameLength(uint32_t length);
