#include "ctl/completion.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "ctl/commands.h"
#include "ctl/interfaces.h"
#include "ctl/output.h"
#include "ctl/rows.h"

namespace {

using Words = std::vector<std::string>;

// Options of every command; the first takes a value.
const Words COMMON_OPTIONS = {"--timeout", "--json", "--help"};

// "[INTERFACE...]" as "INTERFACE".
std::string bare(std::string_view word) {
    std::string name;
    for (const char letter : word) {
        if (letter != '[' && letter != ']' && letter != '.') {
            name += letter;
        }
    }
    return name;
}

// A word of a signature that stands for itself, such as "clear" in "CALL|list|clear".
bool isLiteral(std::string_view word) {
    return !word.empty() && word.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string_view::npos;
}

Words numberTexts(const std::set<uint32_t>& numbers) {
    Words texts;
    for (const uint32_t number : numbers) {
        texts.push_back(std::to_string(number));
    }
    return texts;
}

Words groupNumbers(Session& session, std::string_view object) {
    std::vector<Row> rows;
    std::set<uint32_t> numbers;
    collectRows(session, object == "vlan-group" ? VLAN_GROUP_ROWS : GROUP_ROWS, nullptr, false, rows);
    for (const Row& row : rows) {
        numbers.insert(row.scope.number);
    }
    return numberTexts(numbers);
}

Words vlanIds(Session& session) {
    std::set<uint32_t> ids;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.vlan != 0) {
            ids.insert(interface.vlan);
        }
    }
    return numberTexts(ids);
}

Words interfaceChoices(Session& session, bool trunksOnly) {
    Words names;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.vlan == 0 && (!trunksOnly || interface.kind == "trunk")) {
            names.push_back(interface.name);
        }
    }
    return names;
}

// What can be written for one word of the signature of a command.
Words choices(Session& session, const std::string& object, std::string_view word) {
    static constexpr std::string_view INTERFACES[] = {"INTERFACE", "SOURCE", "TARGET", "FROM",
                                                      "TO",        "A",      "B"};
    const std::string kind = bare(word);
    if (kind == "GROUP") {
        return groupNumbers(session, object);
    }
    if (kind == "VLAN") {
        return vlanIds(session);
    }
    if (kind == "TRUNK" ||
        std::find(std::begin(INTERFACES), std::end(INTERFACES), kind) != std::end(INTERFACES)) {
        return interfaceChoices(session, kind == "TRUNK");
    }
    Words literals;
    for (std::string_view rest = kind; !rest.empty();) {
        const size_t bar = std::min(rest.find('|'), rest.size());
        if (isLiteral(rest.substr(0, bar))) {
            literals.emplace_back(rest.substr(0, bar));
        }
        rest.remove_prefix(std::min(bar + 1, rest.size()));
    }
    return literals;
}

// A signature as completion sees it: its positional words, and its options, each with the word that its value
// stands under, empty for one without a value.
struct Shape {
    Words positional;
    std::vector<GivenOption> options;
};

Shape shapeOf(std::string_view signature) {
    Shape shape;
    for (const std::string& word : splitWords(signature)) {
        const std::string name = bare(word);
        const bool awaitsValue = !shape.options.empty() && shape.options.back().value == "?";
        if (name.starts_with("--")) {
            shape.options.push_back({name, word.ends_with(']') ? "" : "?"});
        } else if (awaitsValue) {
            shape.options.back().value = name;
        } else {
            shape.positional.push_back(word);
        }
    }
    return shape;
}

Words argumentChoices(Session& session, const Command& command, const Words& given, const std::string& last) {
    const Shape shape = shapeOf(command.signature);
    size_t place = 0;
    const std::string* value = nullptr;  // the signature's word for the value that comes next
    for (const std::string& word : given) {
        if (value != nullptr) {
            value = nullptr;
        } else if (word.starts_with("--")) {
            value = optionValue(shape.options, word);
            value = value != nullptr && value->empty() ? nullptr : value;
        } else {
            ++place;
        }
    }
    if (value != nullptr) {
        return choices(session, command.object, *value);
    }
    if (last.starts_with("-")) {
        Words options = COMMON_OPTIONS;
        for (const GivenOption& option : shape.options) {
            options.push_back(option.name);
        }
        return options;
    }
    if (shape.positional.empty()) {
        return {};
    }
    const bool repeats = shape.positional.back().find("...") != std::string::npos;
    if (place >= shape.positional.size() && !repeats) {
        return {};
    }
    return choices(session, command.object, shape.positional[std::min(place, shape.positional.size() - 1)]);
}

// Takes the options that may stand anywhere out of the words in front of the last one. False when the last
// word is the value of one.
bool dropCommonOptions(Words& words) {
    Words rest;
    for (size_t at = 0; at < words.size(); ++at) {
        if (words[at] == COMMON_OPTIONS[0]) {
            ++at;
            if (at >= words.size()) {
                return false;
            }
        } else if (std::find(COMMON_OPTIONS.begin(), COMMON_OPTIONS.end(), words[at]) ==
                   COMMON_OPTIONS.end()) {
            rest.push_back(words[at]);
        }
    }
    words = rest;
    return true;
}

Words allChoices(Session& session, Words given, const std::string& last) {
    if (!dropCommonOptions(given)) {
        return {};
    }
    if (!given.empty() && given[0] == "help") {
        given.erase(given.begin());
    }
    Words objects;
    for (const Command& command : commandTable()) {
        if (objects.empty() || objects.back() != command.object) {
            objects.emplace_back(command.object);
        }
    }
    if (given.empty()) {
        return last.starts_with("-") ? COMMON_OPTIONS : objects;
    }
    std::string error;
    const std::string object = objects[pickName(objects, given[0], "object", error)];
    Words verbs;
    std::vector<const Command*> commands;
    for (const Command& command : commandTable()) {
        if (object == command.object && error.empty()) {
            verbs.emplace_back(command.verb);
            commands.push_back(&command);
        }
    }
    if (commands.empty()) {
        return {};
    }
    const bool hasVerbs = !verbs[0].empty();
    if (hasVerbs && given.size() == 1) {
        return last.starts_with("-") ? COMMON_OPTIONS : verbs;
    }
    const size_t at = hasVerbs ? pickName(verbs, given[1], "verb", error) : 0;
    given.erase(given.begin(), given.begin() + (hasVerbs ? 2 : 1));
    return error.empty() ? argumentChoices(session, *commands[at], given, last) : Words{};
}

}  // namespace

std::vector<std::string> completions(Session& session, const std::vector<std::string>& words) {
    if (words.empty()) {
        return {};
    }
    Words found = allChoices(session, {words.begin(), words.end() - 1}, words.back());
    std::erase_if(found, [&](const std::string& word) { return !word.starts_with(words.back()); });
    return found;
}

Exit runComplete(Session& session, const Invocation& invocation) {
    for (const std::string& word : completions(session, invocation.arguments)) {
        printLine(word);
    }
    return Exit::done;
}
