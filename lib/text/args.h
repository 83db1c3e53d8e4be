// The words of a command line: numbers, lists and abbreviations. The parse functions are pure and answer
// false for what is not theirs; the others end the command over a word that they cannot read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/fields.h"
#include "common/words.h"

// Seconds with an optional fraction, more than 0 and at most a day, in milliseconds.
bool parseSeconds(std::string_view text, int64_t& milliseconds);
// "5,1,0x10"
bool parseWords(std::string_view text, std::vector<uint32_t>& words);

// A number of the command line; `what` names it in the sentence that ends the command.
uint32_t numberArgument(const char* what, const std::string& text);
// The number that an option gives, `fallback` where it was not given.
uint32_t numberOption(const std::vector<Field>& options, std::string_view name, const char* what,
                      uint32_t fallback = 0);
// VLAN ids, 1 to VLAN_ID_MAX: numbers and ranges of them, such as "10 20-23".
std::vector<uint32_t> vlanArguments(const std::vector<std::string>& texts);
// The VLAN id that the option --vlan gives, 0 where it was not given.
uint32_t vlanOption(const std::vector<Field>& options);

// The place of `text`, or of the one name that it begins, among `names`; exact names win. Ends the command
// when there is none or more than one, in a sentence that calls it a `what` and begins with `where`. This is
// code of our own: parsers of command lines abbreviate options, but not objects and verbs.
size_t pickName(const std::vector<std::string>& names, std::string_view text, const char* what,
                const std::string& where = "");
