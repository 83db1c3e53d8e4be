// The daemon's single values.
#pragma once

#include <string>
#include <vector>

#include "lib/link/session.h"
#include "lib/text/listing.h"

// The bytes of a scalar as a number, a text or a list of numbers.
Cell scalarCell(uint32_t id, const std::string& value);
Listing scalarListing(Session& session, const std::vector<uint32_t>& ids);

// Which debug texts a mask switches on.
std::vector<std::string> debugCategories(uint32_t mask);
Json debugAnswer(uint32_t mask);
