// The daemon's printouts taken apart. Pure functions: they read what the print functions write and nothing
// else.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A row of the pair or the inner table with the groups whose bits are set in it.
struct PrintedPair {
    uint32_t source = 0;
    uint32_t target = 0;
    std::vector<uint32_t> groups;
};

// "name: value" lines, in their order; a name that comes again has its values joined by commas.
std::vector<std::pair<std::string, std::string>> readSettings(std::string_view printout);
// Empty for a printout of anything but a pair table.
std::vector<PrintedPair> readPairs(std::string_view printout);
// The numbers of each line that names an interface by "ifunit:", in their order: those of
// "  isoGrpNo 5 vlan 10 -> ifUnit:3" are 5, 10 and 3.
std::vector<std::vector<uint32_t>> readNumbers(std::string_view printout);
