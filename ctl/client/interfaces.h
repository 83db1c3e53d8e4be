// Interfaces as an operator names them: by name, by number, or by a range in a name's last number. Names are
// the board's, which is asked for them at most once and only when a name is to be read or shown; numbers work
// without it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ctl/client/session.h"

// The interfaces of the board; none, with session.interfacesFailure set, where it cannot be asked.
const std::vector<BoardInterface>& boardInterfaces(Session& session);
// The interfaces that a name, a number or a range stands for. Empty, or what is wrong with `text`; unless
// session.interfacesFailure is set, the text itself is.
std::string findInterfaces(Session& session, const std::string& text, std::vector<uint32_t>& numbers);

// Resolves each of `texts`, ranges expanded, doubles dropped.
Exit resolveInterfaces(Session& session, std::span<const std::string> texts, std::vector<uint32_t>& numbers);
Exit resolveInterface(Session& session, const std::string& text, uint32_t& number);

// The name of an interface, its number where the board does not know it or cannot be asked.
std::string interfaceName(Session& session, uint32_t number);
std::string interfaceNames(Session& session, const std::vector<uint32_t>& numbers);
