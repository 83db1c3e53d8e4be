// What ends a command, as JSON.
#pragma once

#include "lib/text/exit.h"
#include "lib/text/listing.h"

// {"error": {status, number, words}}: the status as it is written everywhere and as a number, both null where
// no status of the daemon ended it, and the sentence for people, or the status in words
// where that was printed already.
Json errorAnswer(const CommandEnds& end);
