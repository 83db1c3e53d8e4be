// Ports that a plan leaves open for a moment, though they are isolated before and after.
#pragma once

#include <cstdint>
#include <set>
#include <utility>

#include "lib/configuration/config_plan.h"

// The smaller number of each two interfaces first. What the daemon refuses beyond its rules of rows, such as
// a claim beyond a limit, is not foreseen.
std::set<std::pair<uint32_t, uint32_t>> findOpenings(const Configuration& running,
                                                     const Configuration& wanted, const Plan& plan);
