#include "web/routes/parameters.h"

#include <algorithm>

#include "common/text.h"
#include "lib/text/args.h"
#include "lib/text/exit.h"

namespace {

constexpr size_t TEXT_MAX = 128;  // bytes; no interface has a longer name

}  // namespace

void checkParameters(const Parameters& parameters, std::initializer_list<std::string_view> known) {
    for (const auto& [name, value] : parameters) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            throw misuse("unknown parameter \"" + name.substr(0, TEXT_MAX) + "\"");
        }
        if (parameters.count(name) > 1) throw misuse("parameter " + name + " is given twice");
        if (value.empty()) throw misuse("parameter " + name + " is empty");
        if (safeText(value) != value) throw misuse("parameter " + name + " is no text");
        if (value.size() > TEXT_MAX) throw misuse("parameter " + name + " is too long");
    }
}

std::string parameterText(const Parameters& parameters, const std::string& name) {
    const auto found = parameters.find(name);
    return found != parameters.end() ? found->second : std::string();
}

uint32_t parameterNumber(const Parameters& parameters, const std::string& name) {
    const std::string text = parameterText(parameters, name);
    return text.empty() ? 0 : numberArgument(name.c_str(), text);
}

uint32_t parameterVlan(const Parameters& parameters) {
    const std::string text = parameterText(parameters, "vlan");
    const std::vector<uint32_t> vlans = text.empty() ? std::vector<uint32_t>() : vlanArguments({text});
    if (vlans.size() > 1) throw misuse("parameter vlan takes one VLAN");
    return vlans.empty() ? 0 : vlans.front();
}

std::string requiredText(const Parameters& parameters, const std::string& name) {
    std::string text = parameterText(parameters, name);
    if (text.empty()) throw misuse("parameter " + name + " is missing");
    return text;
}
