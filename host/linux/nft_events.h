// What others do to the filter's table, as the kernel tells it in notifications. Those of our own
// transactions are kept out by the kernel itself. What has become of the table is not read from them: they
// say that it is to be looked at, and who was at it.
//
// Completeness
// ------------
// Notifications that come faster than they are taken are lost; that, too, says that the table is to be looked
// at.
//
// Thread-safety
// -------------
// One task's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct mnl_socket;

struct TableEvents {
    mnl_socket* socket = nullptr;
    std::vector<char> buffer;
};

struct TableNews {
    bool touched = false;  // our table
    std::string by;        // the last one who did, where the kernel says it: "nft, process 123"
};

// `own` is the port of those whose transactions are no news. 0, or an errno value.
int openTableEvents(TableEvents& events, uint32_t own);
// Whether something has arrived within so many milliseconds. Without a subscription nothing does.
bool awaitTableEvents(const TableEvents& events, int timeout);
TableNews takeTableEvents(TableEvents& events);
