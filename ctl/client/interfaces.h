// Interfaces as an operator names them.
//
// Names: a text that is a number is the interface's number, whatever the board calls it. Every other text is
// a name of the board, which is asked for its interfaces at most once, and only when a name is to be read or
// shown. So numbers work without the board; where it cannot be asked they are also what is shown.
//
// Ranges: a text whose end is "LOW-HIGH", such as ge1/1-4 or 10-20, stands for the names or numbers with each
// number from LOW to HIGH in that place. The board may have a name that looks like a range, such as "2-3";
// such a name wins over the range, unless the range is one of bare numbers. So no name of the board may be
// written back into a text without a look whether it is read as the same interface (`writtenName` in
// ctl/configuration/configuration.cpp).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ctl/client/session.h"

// The interfaces of the board; none, with session.interfacesFailure set, where it cannot be asked.
const std::vector<BoardInterface>& boardInterfaces(Session& session);
// Null where the board does not have it or cannot be asked.
const BoardInterface* findInterface(Session& session, uint32_t number);

// What a name, a number or a range stands for, or what is wrong with it. Unless session.interfacesFailure is
// set, it is the text itself that is wrong.
struct FoundInterfaces {
    std::vector<uint32_t> numbers;
    std::string wrong;  // empty: nothing
};
FoundInterfaces findInterfaces(Session& session, const std::string& text);

// The interfaces that each of `texts` stands for, doubles dropped. Ends the command over one that is wrong.
std::vector<uint32_t> resolveInterfaces(Session& session, std::span<const std::string> texts);
// The same for a single interface; a range of several ends the command.
uint32_t resolveInterface(Session& session, const std::string& text);

// The name of an interface, its number where the board does not know it or cannot be asked.
std::string interfaceName(Session& session, uint32_t number);
// "ge1/1, ge1/2 and 7"
std::string interfaceNames(Session& session, const std::vector<uint32_t>& numbers);
