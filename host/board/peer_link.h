// The link to the peer control board: a mirrored request goes to the peer's command server as the matching
// sync request. It has reached the peer when it was handed over whole; nobody waits for the answer, so two
// boards that configure each other never wait for one another. A task of the link's own takes the answers in
// as they come, compares them with those of this board (host/board/peer_answers.h), and reports what differs.
//
// What counts as a failure
// ------------------------
// No peer described, none listening, or one that closes the connection without ever answering (it has no room
// for clients, or does not allow this user) is a board that is not plugged: success, reported once, and the
// request is counted as missed. A peer that accepts and then stalls or breaks off is a failure within the
// time-out of the board's description. While it goes on stalling, further requests fail at once; the
// connection is kept, so that what it has taken so far and what it takes later reach it in order. The peer
// counts as reached from its first answer on.
//
// What can come of it is searched in tests/model/two_boards.pml, a model of two boards; a change of the order
// in which things happen here belongs there, too.
//
// Descriptors
// -----------
// The socket of the next connection is made ahead. Where not even that could be had, the peer counts as not
// reached: no lack of descriptors on this board makes its own changes fail.
//
// Thread-safety
// -------------
// One request at a time, in the order of the calls, under a lock of the link's own, which is held for as long
// as the peer takes. The board's lock must not be held: it is taken for a moment to read the description and
// the names of interfaces.
#pragma once

#include <cstdint>
#include <string>

#include "host/board/peer_answers.h"
#include "host/board/peer_request.h"

// none: not described; unknown: nothing was handed over yet, or not answered; silent: takes requests and does
// not answer; starved: this board has no descriptor for the connection; failed: takes no requests.
enum class PeerState : uint8_t { none, unknown, reached, silent, absent, starved, failed };

struct PeerStatus {
    PeerState state = PeerState::none;
    std::string root;      // of the peer's files; empty: none is described
    uint64_t waiting = 0;  // requests that wait for their answer
    PeerCounts counts;
};

// Makes the link ready for the peer that the board's description names, if any. Called once, before the first
// request.
void preparePeerLink();

// Hands the request to the peer, unless `flags`, those of the control block, say that it came from there. 0,
// or the status of a peer that failed.
int32_t mirrorToPeer(const PeerRequest& request, uint32_t flags);

PeerStatus peerStatus();
// Somebody has compared the boards and found them equal: the counts begin anew.
void peerAgrees();
