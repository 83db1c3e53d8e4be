// Statuses in words, for an operator.
#pragma once

#include <cstdint>
#include <string>

// "not found: ...", or "unknown status".
const char* statusText(int32_t status);
// "0x03E80002"
std::string statusCode(int32_t status);
// "0x03E80002: not found", the form that every refusal has.
std::string describeStatus(int32_t status);
