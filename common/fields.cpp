#include "common/fields.h"

#include <algorithm>

Field splitField(std::string_view word) {
    const size_t equals = std::min(word.find('='), word.size());
    return {std::string(word.substr(0, equals)), std::string(word.substr(std::min(equals + 1, word.size())))};
}

const std::string* fieldValue(const std::vector<Field>& fields, std::string_view name) {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field& field) { return field.name == name; });
    return found == fields.end() ? nullptr : &found->value;
}
