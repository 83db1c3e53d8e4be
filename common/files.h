// Whole files, their paths, and the clock.
//
// Every path of the system lies below the root prefix (ROOT_VARIABLE in wire/framing.h), so that several
// boards run side by side on one machine.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

std::string rootPrefix();
std::string rootedPath(const char* path);

// Everything that is left in `file`; false with errno set when it cannot be read, or holds more than
// TEXT_FILE_MAX bytes.
inline constexpr size_t TEXT_FILE_MAX = 4u << 20;
bool readText(std::FILE* file, std::string& text);
bool readTextFile(const std::string& path, std::string& text);

// Milliseconds on the monotonic clock.
int64_t monotonicMs();
