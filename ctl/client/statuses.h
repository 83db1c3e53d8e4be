// Statuses in words, for an operator.
#pragma once

#include <cstdint>
#include <string>

const char* statusText(int32_t status);
// "0x03E80002: not found", the form in which every refusal is told.
std::string describeStatus(int32_t status);
