// The names of the daemon's scalars.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The readable scalars, in the order of their ids, and their names.
std::vector<uint32_t> scalarIds();
std::vector<std::string> scalarNames();
// The name of a scalar; null, or its number, where it has none.
const char* knownScalarName(uint32_t id);
std::string scalarName(uint32_t id);
