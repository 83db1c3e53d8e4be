// What happens in the daemon, as JSON: what it is about in words and names, never as bytes.
#pragma once

#include <string>

#include "lib/link/happening.h"
#include "lib/text/listing.h"

// How what happened ended. That a walk finds no further row is none of its failures.
struct HappeningEnd {
    bool good = true;
    const char* result = "ok";  // ok, none or refused
    std::string text;           // the same, or the status in words
};
HappeningEnd happeningEnd(const Happening& happening);

// An object on one line. It is text, since numbers stand in it with all the digits that the board wrote.
std::string happeningAnswer(Session& session, const Happening& happening);
