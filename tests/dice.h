// Random choices that can be made again: a failure names its seed, and PORTISOLATE_SEED=N runs that one
// alone.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

inline std::mt19937 dice;

inline uint32_t roll(uint32_t below) {
    return static_cast<uint32_t>(dice() % below);
}

template <typename Value>
Value pick(const std::vector<Value>& values) {
    return values[roll(static_cast<uint32_t>(values.size()))];
}

// Runs a check with seed after seed, until one fails.
template <typename Check>
void everySeed(uint32_t runs, Check check) {
    const char* chosen = std::getenv("PORTISOLATE_SEED");
    const uint32_t first = chosen != nullptr ? static_cast<uint32_t>(std::atoi(chosen)) : 1;
    const uint32_t last = chosen != nullptr ? first : runs;
    for (uint32_t seed = first; seed <= last && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("PORTISOLATE_SEED=" + std::to_string(seed));
        dice.seed(seed);
        check();
    }
}
