// What goes to the operator: aligned tables with colour where a person looks at them, JSON where a program
// does, sentences on standard error. Names and texts that come from elsewhere never reach a terminal or a
// JSON text unescaped.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

std::string formatText(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Control characters and bytes that are no UTF-8 as \xNN.
std::string safeText(std::string_view text);
// A quoted JSON string; bytes that are no UTF-8 become U+FFFD.
std::string jsonString(std::string_view text);

// "portisolatectl: SENTENCE" on standard error.
void complain(const std::string& sentence);
// One line on standard output.
void printLine(std::string_view line);

enum class Tone : uint8_t { plain, heading, good, warning, bad, faint };
// `text` in the colour of `tone`, unchanged where standard output takes no colour.
std::string toned(Tone tone, std::string_view text);

struct Cell {
    std::string text;
    std::string json;
    Tone tone = Tone::plain;
};
Cell textCell(std::string_view text, Tone tone = Tone::plain);
Cell numberCell(uint64_t number);
Cell flagCell(bool flag, const char* yes, const char* no);  // true or false in JSON
Cell noCell();                                              // "-", null in JSON
Cell listCell(const std::vector<std::string>& texts);
Cell numberListCell(const std::vector<uint32_t>& numbers);

struct ListingColumn {
    const char* heading;  // null: in JSON only
    const char* key;      // in JSON; part of what scripts rely on
};

// A table with one record a row, told either way.
struct Listing {
    std::vector<ListingColumn> columns;
    std::vector<std::vector<Cell>> rows;
};
std::string listingJson(const Listing& listing);
void printListing(const Listing& listing, bool json);
std::string jsonObject(const std::vector<ListingColumn>& columns, const std::vector<Cell>& cells);

// Columns that a text takes on a terminal, and the text filled up with blanks to so many.
size_t textWidth(std::string_view text);
std::string padded(std::string_view text, size_t width);

std::string joinWords(const std::vector<std::string>& words, const char* between);
// "a, b or c".
std::string joinChoices(const std::vector<std::string>& words, const char* conjunction);
