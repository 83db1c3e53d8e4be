// The options "portisolate.*": read once, at start-up, and handed to initialisation.
#pragma once

#include <cstdint>

// Reads all options and initialises the daemon. 0 on success; -1 when the daemon is switched off or could not
// be initialised. To be called once, before any other task of the daemon exists.
int32_t portIsolateOptInit();

// Sets bit i + 1 of the `bytes` long list for every '1' at position i of the text; other characters leave
// their bit alone. Returns 0.
int32_t portIsolateStr2bitList(const char* text, uint8_t* list, uint32_t bytes);
