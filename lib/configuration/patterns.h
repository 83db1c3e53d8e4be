// Patterns of a configuration against the interfaces of the board.
//
// A pattern stands for ports and trunks; member ports of a trunk, VLAN interfaces and what is gone for good
// cannot be isolated by themselves and are passed over. Aliases and alternative names may hold any bytes.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "common/config_file.h"
#include "lib/link/board_client.h"

// `*` stands for any text, `?` for a character, and what follows a backslash for itself. Takes a time that
// grows with the product of the two lengths at most.
bool globMatches(std::string_view pattern, std::string_view text);

// The numbers of those that `pattern` stands for, without those that a word of its line leaves out.
std::vector<uint32_t> matchPattern(const std::vector<BoardInterface>& interfaces, const ConfigWord& pattern,
                                   const std::vector<ConfigWord>& line);
