// The option store: lines `KEY = VALUE` of <root>/etc/portisolate/portisolate.conf, read once, when
// silOptRead of platform/services.h or rejectedOptions is first called. A line that cannot be read is
// reported with its number and left out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

inline constexpr uint32_t OPTION_VALUE_MAX = 31;  // bytes

struct Options {
    std::unordered_map<std::string, std::string> values;
    uint32_t rejected = 0;  // lines that were reported
};

// Adds what `text` sets to `options`; of two lines with one key the later holds. `fileName` is for the
// reports.
void readOptions(std::string_view text, const char* fileName, Options& options);

// How many lines of the store's file were reported.
uint32_t rejectedOptions();
