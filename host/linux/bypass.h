// What on a bridge goes past the filter, as far as the kernel tells: filters of tc at its ports that send
// frames on, flowtables over its ports, and routing between what is connected to it. Only looks.
#pragma once

#include <string>
#include <vector>

// Each as a sentence for the operator.
std::vector<std::string> bypassesOf(const std::string& bridge);
