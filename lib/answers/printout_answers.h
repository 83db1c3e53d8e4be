// The daemon's printouts as JSON.
#pragma once

#include <string>
#include <string_view>

#include "lib/link/session.h"
#include "lib/text/listing.h"

// A printing function of the daemon, and its printout as JSON.
struct Printout {
    const char* verb;
    const char* function;
    Json (*answer)(Session& session, const std::string& text);
};

// Null for a name that none has.
const Printout* findPrintout(std::string_view verb);
std::string readPrintout(Session& session, const Printout& printout);
