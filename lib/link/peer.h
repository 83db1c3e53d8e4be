// The peer board: what this board says of its link to it, and a session with it.
#pragma once

#include <cstdint>
#include <string>

#include "lib/link/session.h"

inline constexpr char PEER_UNKNOWN[] = "unknown";
inline constexpr char PEER_REACHED[] = "reached";
inline constexpr char PEER_ABSENT[] = "absent";

struct PeerLink {
    std::string state;  // "none", or one of these, or the trouble with it in a word
    std::string root;   // of the peer's files
    // Since the boards were last found equal.
    uint64_t answered = 0;
    uint64_t differing = 0;  // carried out by one board and refused by the other
    uint64_t missed = 0;     // carried out here alone, since the peer was not reached
    uint64_t lost = 0;       // handed over, and never answered
    uint64_t ended = 0;      // connections
    uint64_t waiting = 0;    // for an answer now
};

// Both end the command when the board cannot be asked or its answer cannot be read.
PeerLink readPeerLink(Session& session);
std::string readRole(Session& session);

// Why the boards may differ, "" for no reason: "2 requests were answered otherwise, ...".
std::string doubtText(const PeerLink& link);

// A session with the peer board; openPeer makes it one like `session`, which is with this board, and ends the
// command when no peer is described.
struct PeerSession {
    Session session;
    PeerSession() = default;
    PeerSession(const PeerSession&) = delete;
    ~PeerSession() { sessionClose(session); }
};
void openPeer(Session& session, PeerSession& peer);
// Tells this board that the two hold the same.
void tellAgreement(Session& session);
