// Doors: ports whose names match a pattern do not forward to one another until their door is opened. What the
// patterns match stands in the kernel, which compares the name at every frame; so does which ports were
// opened, by index and name. A port that is new under an old name, or has a new name, is therefore closed
// from its first frame, whether a daemon runs or not.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/linux/nft_transaction.h"

inline constexpr char CLOSED_SET[] = "closed";
inline constexpr char DOOR_CHAIN[] = "doors";

// The patterns in order, without those that another one covers: the kernel takes no overlapping ones.
std::vector<std::string> doorPatterns(const std::vector<std::string>& patterns);
bool matchesDoor(const std::vector<std::string>& patterns, std::string_view device);

// What the set of the patterns is made of, for its comparison.
std::string closedSetText();
void appendClosedSet(Batch& batch, uint32_t id, const std::vector<std::string>& patterns);
