// Interfaces as an operator names them.
//
// Names: a text is a name of the board where the board has it, else the number of an interface. The board is
// asked for its interfaces at most once. Where it cannot be asked, numbers work all the same, and are also
// what is shown.
//
// Ranges: a text whose end is "LOW-HIGH", such as ge1/1-4 or 10-20, stands for the names or numbers with each
// number from LOW to HIGH in that place. The board may have a name that looks like a range or like a number,
// such as "2-3" or "5"; such a name wins. So neither a name nor a number may be written back into a text
// without a look whether it is read as the same interface (`writtenName` in
// lib/configuration/configuration.cpp).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/row_families.h"
#include "lib/link/session.h"

// The interfaces of the board; none, with session.interfacesFailure set, where it cannot be asked.
const std::vector<BoardInterface>& boardInterfaces(Session& session);
// They are asked for anew the next time.
void forgetInterfaces(Session& session);
// Whether the board stands for no real one: none of its interfaces is a device of the kernel.
bool isSimulated(Session& session);
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

// What is wrong with isolating these: one that the board does not list could be neither isolated nor removed
// again. Empty where nothing is, or the board cannot be asked.
std::string unlistedInterface(Session& session, const std::vector<uint32_t>& numbers);

// The name of an interface, its number where the board does not know it or cannot be asked.
std::string interfaceName(Session& session, uint32_t number);
InterfaceNamer boardNamer(Session& session);
// "ge1/1, ge1/2 and 7"
std::string interfaceNames(Session& session, const std::vector<uint32_t>& numbers);
