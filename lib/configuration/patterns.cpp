#include "lib/configuration/patterns.h"

#include <algorithm>

#include "common/text.h"
#include "common/words.h"

namespace {

// Bytes of the character at the front; a byte that is no UTF-8 counts as one.
size_t characterLength(std::string_view text) {
    return std::max<size_t>(utf8Length(text), 1);
}

// Whether the front of a pattern stands for the character at the front of a text, and how many bytes both
// have.
struct Step {
    bool matches;
    size_t pattern, text;
};

Step matchCharacter(std::string_view pattern, std::string_view text) {
    const size_t length = characterLength(text);
    if (pattern.empty()) return {false, 0, 0};
    if (pattern.front() == '?') return {true, 1, length};
    const size_t escape = pattern.front() == '\\' && pattern.size() > 1 ? 1 : 0;
    return {pattern.substr(escape).starts_with(text.substr(0, length)), escape + length, length};
}

bool isPatternable(const BoardInterface& interface) {
    return !interface.gone && interface.trunk.empty() && interface.kind != "vlan";
}

bool matchesName(std::string_view pattern, const BoardInterface& interface) {
    return globMatches(pattern, interface.name) ||
           (!interface.device.empty() && globMatches(pattern, interface.device)) ||
           std::any_of(interface.otherNames.begin(), interface.otherNames.end(),
                       [&](const std::string& name) { return globMatches(pattern, name); });
}

bool isMeant(const ConfigWord& word, const BoardInterface& interface) {
    switch (word.kind) {
        case WordKind::glob:
            return globMatches(word.text, interface.name);
        case WordKind::anyName:
            return matchesName(word.text, interface);
        case WordKind::alias:
            return !interface.alias.empty() && globMatches(word.text, interface.alias);
        default:
            break;
    }
    const std::vector<std::string> names = expandWord(word.text);
    return word.text == interface.name || word.text == std::to_string(interface.number) ||
           std::find(names.begin(), names.end(), interface.name) != names.end();
}

}  // namespace

bool globMatches(std::string_view pattern, std::string_view text) {
    // Behind the last star, and how far it reaches: what does not match is tried one character further on.
    std::string_view behind;
    std::string_view rest;
    bool starred = false;
    while (!text.empty() || !pattern.empty()) {
        if (!pattern.empty() && pattern.front() == '*') {
            pattern.remove_prefix(1);
            behind = pattern;
            rest = text;
            starred = true;
            continue;
        }
        const Step step = text.empty() ? Step{false, 0, 0} : matchCharacter(pattern, text);
        if (step.matches) {
            pattern.remove_prefix(step.pattern);
            text.remove_prefix(step.text);
        } else if (starred && !rest.empty()) {
            rest.remove_prefix(characterLength(rest));
            text = rest;
            pattern = behind;
        } else {
            return false;
        }
    }
    return true;
}

std::vector<uint32_t> matchPattern(const std::vector<BoardInterface>& interfaces, const ConfigWord& pattern,
                                   const std::vector<ConfigWord>& line) {
    std::vector<uint32_t> numbers;
    for (const BoardInterface& interface : interfaces) {
        if (!isPatternable(interface) || !isMeant(pattern, interface)) continue;
        const bool excluded = std::any_of(line.begin(), line.end(), [&](const ConfigWord& word) {
            return word.excluded && isMeant(word, interface);
        });
        if (!excluded) numbers.push_back(interface.number);
    }
    return numbers;
}
