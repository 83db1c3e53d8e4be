// The command server: serves the daemon's operation table on a local stream socket, in the format of
// wire/framing.h (icmProcTcpInit of platform/services.h starts it). One task with poll serves all clients,
// each in the order of its requests.
//
// Fairness
// --------
// No client holds up another: nobody is waited for, and one that does not read its replies is not read from
// until it does. A round serves each client a bounded number of requests, and what it may take is shared out
// among those who want something; each gets one request at least. A client costs no more memory than one
// reading and a bounded amount of unsent replies; one whose memory cannot be had is given up. How many may be
// connected, and who goes when there are too many, is decided in host/sockets/admission.h. The loop is
// written out here, since this order of service is what the loops of libraries for events leave to chance.
//
// The peer
// --------
// The link of the peer board comes first: the request of an ordinary client may have to wait for room on the
// way to the peer, and the peer has room as long as what it sends is taken in between. It is the one
// connection of the process that serves the described root (PID_FILE in wire/framing.h); what a client sends
// makes it no peer. A peer that sends without end gets no more than its share of a round.
//
// Thread-safety
// -------------
// The server's record and its clients belong to its one task. Handlers run in that task, one at a time, with
// no lock held. expectPeer and commandClients may be called by any task.
#pragma once

#include <cstdint>
#include <string>

#include "host/sockets/command_request.h"

// The root prefix of the peer board, empty for none: what its daemon has sent is carried out before the
// request of anybody else. None is expected at first.
void expectPeer(const std::string& root);

// The operations that are served; null before they are.
const OperationTable* servedTable();

// How many are connected now.
uint32_t commandClients();
