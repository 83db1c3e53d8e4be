// A request of the command socket in words.
#pragma once

#include <string>
#include <string_view>

#include "common/row_families.h"

// "group 5, ge1/1: create" for the bytes of a request behind its length word.
std::string requestText(const InterfaceNamer& nameOf, std::string_view frame);
// Whether it sets something. A probe does not, nor does what cannot be read.
bool requestSets(std::string_view frame);
