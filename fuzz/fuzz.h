// What the fuzz targets share: a failed expectation stops the run as a bad memory access does.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);

inline void stopAtFailedExpectations() {
    GTEST_FLAG_SET(throw_on_failure, true);
}
