// Who hears how the requests of clients end: the command server tells the status of each, and the link to the
// peer board compares it with the peer's. The two do not know one another.
#pragma once

#include <cstdint>

// Has `listener` called with the status of each request that was carried out, in the task that did it and
// before the reply goes out. There is one listener at most.
void listenToAnswers(void (*listener)(int32_t status));
void tellAnswer(int32_t status);
