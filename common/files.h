// Whole files, their paths, and the clock.
//
// Every path of the system lies below the root prefix (ROOT_VARIABLE in wire/framing.h), so that several
// boards run side by side on one machine.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

std::string rootPrefix();
std::string rootedPath(const char* path);

// Everything that is left in `file`; false with errno set when it cannot be read, or holds more than
// TEXT_FILE_MAX bytes.
inline constexpr size_t TEXT_FILE_MAX = 4u << 20;
bool readText(std::FILE* file, std::string& text);
bool readTextFile(const std::string& path, std::string& text);
// As readTextFile, from a regular file only: anything else may never end, or not even open. False with
// `problem` filled, which is empty where there is no such file.
bool readRegularFile(const std::string& path, std::string& text, std::string& problem);

// Makes a file hold this text, as a whole or not at all, whatever fails or loses power on the way: false with
// errno set. What it was before is kept beside it, with FORMER_SUFFIX behind its name, when `keepsFormer`. A
// device or a pipe is written to instead.
inline constexpr char FORMER_SUFFIX[] = ".former";
bool replaceTextFile(const std::string& path, std::string_view text, bool keepsFormer);

// Milliseconds on the monotonic clock.
int64_t monotonicMs();
