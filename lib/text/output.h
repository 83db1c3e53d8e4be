// What goes to the operator: lines on standard output, with colour where a person looks at them, and
// sentences on standard error. Names and texts that come from elsewhere pass through safeText on their way to
// a terminal.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/words.h"

// "portisolatectl: SENTENCE" on standard error.
void complain(const std::string& sentence);
// One line on standard output, as it is.
void printLine(std::string_view line);

enum class Tone : uint8_t { plain, heading, good, warning, bad, faint };
// `text` in the colour of `tone`, unchanged where standard output takes no colour.
std::string toned(Tone tone, std::string_view text);

// How many columns the terminal has that standard output is: what COLUMNS says, or else the terminal. 0 where
// it is none.
size_t terminalWidth();

// The text filled up with blanks to so many columns.
std::string padded(std::string_view text, size_t width);
