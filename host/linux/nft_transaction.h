// Netlink messages to the kernel's packet filter: several in one transaction, which the kernel takes whole or
// not at all, or one request outside of any, with the answers to it. What is in the messages is for the
// callers to say, through libnftnl; that library has no transactions of its own beyond the framing of a
// batch.
//
// Everything that returns an int returns 0 or an errno value, the kernel's own where it answered.
//
// Thread-safety
// -------------
// One task at a time for a filter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/planes/frame_mark.h"

struct mnl_socket;
struct nlmsghdr;

// The one table that all of this is about, in the bridge family.
inline constexpr char FILTER_TABLE[] = "portisolate";

// A connection to the filter.
struct Filter {
    mnl_socket* socket = nullptr;
    uint32_t sequence = 0;
    bool seesPvid = false;  // the kernel knows the VLAN of an untagged frame
    bool owns = false;      // the table is this socket's alone, and outlives it
    uint32_t markMask = FRAME_MARK_DEFAULT;
    std::vector<std::string> span;  // devices that lead to other machines, in order
    size_t capacity = 0;            // bytes of a transaction that the socket takes
    std::vector<char> message;      // room for one transaction
    std::vector<char> answer;
};

// Opens the socket to the kernel; nothing is changed there. Every other function wants an open filter.
int openFilter(Filter& filter);
// A filter that is not open is fine.
void closeFilter(Filter& filter);

// The messages of one transaction, back to back in the filter's buffer. One at a time for a filter.
struct Batch {
    Filter* filter;
    size_t length;  // bytes
};

Batch beginBatch(Filter& filter);
// Appends the head of a message of the bridge family; the caller adds what follows, in at most 64 KiB, and
// closes the message before the next. `type` is one of NFT_MSG_*.
nlmsghdr* appendMessage(Batch& batch, int type, uint16_t flags);
void closeMessage(Batch& batch, const nlmsghdr* header);
// Ends the batch and hands it to the kernel. The first refusal when there are several.
int commitBatch(Batch& batch);
// Hands it to the kernel for its opinion alone: nothing is changed.
int abandonBatch(Batch& batch);

using MessageReader = std::function<void(const nlmsghdr*)>;

struct FilterRequest {
    std::function<void(nlmsghdr*)> build = {};  // adds what follows the head of the request
    std::function<void()> reset = {};           // forgets what an interrupted dump has answered
    MessageReader read;                         // takes one answer
};

// Sends one request outside a transaction and hands its answers on; a dump that a change interrupted is begun
// again.
int ask(Filter& filter, int type, uint16_t flags, const FilterRequest& request);

// By which the kernel knows who has made a transaction.
uint32_t portOf(const Filter& filter);

// The number of the filter's last transaction, by any process: it counts up by one.
int readGeneration(Filter& filter, uint32_t& generation);
