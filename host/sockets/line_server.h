// Serves a local stream socket on which a client sends one line, gets its answer and is closed.
//
// One task with poll reads the lines, sends the answers and feeds the streams, so a client that is silent or
// does not read costs a place and no thread. A request is carried out in a thread of its own, since it may
// take its time. What a client can cost is bounded: 16 KiB for its line and 10 seconds for sending it, 5
// seconds for each piece of the answer; how many may be connected, follow a stream or have a request carried
// out is in host/sockets/admission.h. Who waits for a thread waits in the order of the requests; who has no
// place, or whose place another needs, is told in a line.
//
// Thread-safety
// -------------
// The connections belong to the server's task, but for the request and the answer of one that is being
// carried out, which belong to that thread. The handler runs beside other calls of itself, with no lock held.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/services/streams.h"
#include "host/sockets/socket_access.h"

struct LineAnswer {
    std::string text;
    std::optional<StreamKind> stream;  // what follows the text for as long as the client listens
};

// Who sent a line, which is without its line end. The descriptor is for what writes the answer piece by
// piece, and stays open.
struct LineRequest {
    int client;
    PeerProcess process;
    const std::string& line;
};
using LineHandler = LineAnswer (*)(const LineRequest& request);

// Serves `listener` by tasks named `task` (at most 15 characters) as long as the process lives. 0, or -1
// after a report.
int32_t startLineServer(const char* task, int listener, LineHandler handler);
