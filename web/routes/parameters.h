// What a client gives behind the path of a route.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "web/http/message.h"

// Ends the command over one that is not known, is given twice, or is longer than any that makes sense.
void checkParameters(const Parameters& parameters, std::initializer_list<std::string_view> known);
// Empty where it was not given.
std::string parameterText(const Parameters& parameters, const std::string& name);
// These end the command over what they cannot read. 0 where it was not given.
uint32_t parameterNumber(const Parameters& parameters, const std::string& name);
uint32_t parameterVlan(const Parameters& parameters);
std::string requiredText(const Parameters& parameters, const std::string& name);
