// One client of the command server: what it sent and is not served yet, and the replies that it has not read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/sockets/socket_access.h"

struct CommandClient {
    int fd = -1;
    PeerProcess process = {};
    std::string program;  // of the process; read when it is needed first
    std::string input;
    size_t served = 0;  // bytes of `input` that are done with
    std::string replies;
    size_t sent = 0;      // bytes of `replies` that went out
    int64_t moved = 0;    // monotonic milliseconds when it came, or bytes did
    bool spoke = false;   // some byte came from it
    bool ended = false;   // nothing more will arrive
    bool deaf = false;    // reads no replies any more; what it sent is still carried out
    bool broken = false;  // no further request is taken from it
    bool isPeer = false;  // the link of the peer board
    short happened = 0;   // what the last poll found
};

// A whole request is there and may be served.
bool hasWork(const CommandClient& client);
// The client's next request, if all of it is there and it can be answered; null otherwise. `length` is that
// behind the frame's length word.
const uint8_t* nextRequest(CommandClient& client, uint32_t& length);
// Takes what has arrived, at most 32 KiB.
void receiveRequests(CommandClient& client);
// Gives back the memory of the requests that were served.
void forgetServed(CommandClient& client);
// Sends as much as the client takes.
void sendReplies(CommandClient& client);
// Nothing is left to do for it.
bool isDone(const CommandClient& client);
// What to poll for. A client is read from only when all it sent before has been served.
short clientEvents(const CommandClient& client);
