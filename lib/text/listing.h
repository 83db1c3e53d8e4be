// Tables in two forms: aligned columns for a person, JSON for a program.
//
// A cell holds both forms of one value. Text for the terminal is made safe as the cell is made; in JSON it is
// escaped when it is printed, and bytes that are not UTF-8 become U+FFFD.
//
// JSON has a layout that people can read and line tools can take apart: the elements of the outermost array
// or object stand on lines of their own, what is inside an element does not.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "lib/text/output.h"

// Objects keep the order of their fields, which is part of what scripts and readers rely on.
using Json = nlohmann::ordered_json;

// On one line, without blanks.
std::string jsonText(const Json& value);
// The parts of an array or an object, each JSON already, on lines of their own between `opened` and `closed`.
std::string jsonLines(const char* opened, const std::vector<std::string>& parts, const char* closed);
// The elements of an array on lines of their own.
std::string jsonRows(const Json& array);
// The fields of an object on lines of their own, and the elements of the one called `spread`, too.
std::string jsonFields(const Json& object, std::string_view spread = {});
// `"NAME":TEXT`, where TEXT is JSON already.
std::string jsonField(std::string_view name, const std::string& text);

struct Cell {
    std::string text;
    Json json;
    Tone tone = Tone::plain;
};
Cell textCell(std::string_view text, Tone tone = Tone::plain);
Cell numberCell(uint64_t number);
Cell flagCell(bool flag, const char* yes, const char* no);  // true or false in JSON
Cell noCell();                                              // "-", null in JSON
Json vlanJson(uint32_t vlan);                               // null for 0: all VLANs, or none in particular
Cell listCell(const std::vector<std::string>& texts);
Cell numberListCell(const std::vector<uint32_t>& numbers);
// "1,5,7", or "-" for none.
std::string numberList(const std::vector<uint32_t>& numbers);

struct ListingColumn {
    const char* heading;  // null: in JSON only
    const char* key;      // in JSON
};

// A table with one record a row.
struct Listing {
    std::vector<ListingColumn> columns;
    std::vector<std::vector<Cell>> rows;
};
// An array of an object for each row.
Json listingJson(const Listing& listing);
void printListing(const Listing& listing, bool json);
