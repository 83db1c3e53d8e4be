// NAME=VALUE, as the board writes it in its lines and an operator gives an option (whose name has its
// dashes).
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct Field {
    std::string name;
    std::string value;
};

// Takes a word apart at its first `=`. Without one it is all name.
Field splitField(std::string_view word);
// The value of the first field of that name, null when there is none.
const std::string* fieldValue(const std::vector<Field>& fields, std::string_view name);
