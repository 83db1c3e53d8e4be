// What became of the requests that were handed to the peer board: each is entered when it was handed over,
// and settled once both boards have answered it. A request is mirrored before it is checked, so one that both
// boards refuse is nothing to worry about; the boards differ when one carries out what the other refuses.
//
// A plain record without a lock or a socket: the link (host/board/peer_link.h) owns the one there is, and
// holds its lock for every function here. What is found to differ is reported in the log.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "host/board/peer_request.h"

inline constexpr size_t PEER_INDEX_WORDS = 4;

// Since the start, or since the boards were last found equal.
struct PeerCounts {
    uint64_t answered = 0;
    uint64_t differing = 0;  // carried out by one board and refused by the other
    uint64_t missed = 0;     // carried out here while the peer was not reached
    uint64_t lost = 0;       // handed over, and the connection ended before the answer
    uint64_t ended = 0;      // connections that ended after the peer had answered on them
};

// A copy of what was handed over.
struct SentRequest {
    uint32_t opcode = 0;
    uint32_t column = 0;
    std::array<uint32_t, PEER_INDEX_WORDS> index = {};
    uint32_t value = 0;
    bool probe = false;            // changes nothing
    std::optional<int32_t> here;   // the answer of this board
    std::optional<int32_t> there;  // and of the peer
};

struct PeerLedger {
    std::deque<SentRequest> sent;  // not settled, oldest first
    uint64_t first = 1;            // number of the oldest
    size_t answered = 0;           // how many of `sent` the peer has answered, from the front
    std::string input;             // of an answer that is not whole yet
    uint32_t told = 0;             // differences reported since the last agreement
    PeerCounts counts;
};

// The number under which the request is entered, never 0.
uint64_t enterSent(PeerLedger& ledger, const PeerRequest& request);
// How this board has answered it. Numbers that are settled are ignored.
void settleHere(PeerLedger& ledger, uint64_t number, int32_t status);
// Bytes that the peer has answered. False when they are no answers, or say that the peer has no place for
// this board: no request is carried out after that.
bool takeAnswers(PeerLedger& ledger, const void* bytes, size_t length);
// The connection has ended: nobody knows what became of the requests that have no answer.
void loseUnanswered(PeerLedger& ledger);

// Requests without an answer of the peer.
size_t unanswered(const PeerLedger& ledger);
