#include "ctl/commands/complete.h"

#include <algorithm>
#include <set>

#include "ctl/text/command_line.h"
#include "lib/link/interfaces.h"
#include "lib/link/plane.h"
#include "lib/link/rows.h"
#include "lib/link/scalars.h"
#include "lib/text/args.h"

namespace {

using Words = std::vector<std::string>;

constexpr int64_t TIMEOUT_MS = 500;  // nobody waits longer for a key

const char* const GENERAL_OPTIONS[] = {"--timeout", "--json", "--help", "--version"};

bool isListed(const std::string& word, std::initializer_list<const char*> list) {
    return std::any_of(list.begin(), list.end(), [&](const char* one) { return word == one; });
}

Words interfaceChoices(Session& session, bool trunks) {
    Words names;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.kind == "trunk" || (!trunks && interface.kind != "vlan")) {
            names.push_back(interface.name);
        }
    }
    return names;
}

Words texts(const std::set<uint32_t>& numbers) {
    Words words;
    for (const uint32_t number : numbers) words.push_back(std::to_string(number));
    return words;
}

// The numbers of a family's groups, or their VLANs; none where the daemon does not answer.
std::set<uint32_t> scopeNumbers(Session& session, const RowFamily& family, bool vlans) {
    std::set<uint32_t> numbers;
    try {
        for (const Row& row : walkRows(session, family, nullptr)) {
            numbers.insert(vlans ? row.scope.vlan : row.scope.number);
        }
    } catch (const CommandEnds&) {
        return {};
    }
    return numbers;
}

Words groupChoices(Session& session, const Command& command) {
    const bool plain = std::string_view(command.object) == GROUP_ROWS.object;
    return texts(scopeNumbers(session, plain ? GROUP_ROWS : VLAN_GROUP_ROWS, false));
}

// A number that interfaces of the board have, such as their slot, where it is not 0.
std::set<uint32_t> boardNumbers(Session& session, uint32_t BoardInterface::*member) {
    std::set<uint32_t> numbers;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.*member != 0) numbers.insert(interface.*member);
    }
    return numbers;
}

Words vlanChoices(Session& session) {
    std::set<uint32_t> vlans = scopeNumbers(session, VLAN_GROUP_ROWS, true);
    vlans.merge(boardNumbers(session, &BoardInterface::vlan));
    return texts(vlans);
}

// Alternatives stand in the signature themselves, the fixed ones in lower case: "CALL|list|clear".
Words fixedChoices(const std::string& name) {
    Words choices;
    for (size_t at = 0; at <= name.size();) {
        const size_t end = std::min(name.find('|', at), name.size());
        const std::string word = name.substr(at, end - at);
        if (!word.empty() && word.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos) {
            choices.push_back(word);
        }
        at = end + 1;
    }
    return choices;
}

// The words that a placeholder of a command's signature stands for.
Words placeholderChoices(Session& session, const Command& command, const std::string& name) {
    if (isListed(name, {"INTERFACE", "SOURCE", "TARGET", "FROM", "TO"})) {
        return interfaceChoices(session, false);
    }
    if (name == "TRUNK") return interfaceChoices(session, true);
    if (name == "GROUP") return groupChoices(session, command);
    if (name == "GROUPS") {
        std::set<uint32_t> groups = scopeNumbers(session, GROUP_ROWS, false);
        groups.merge(scopeNumbers(session, VLAN_GROUP_ROWS, false));
        groups.erase(groups.upper_bound(SPANNING_GROUP_MAX), groups.end());
        return texts(groups);
    }
    if (name == "VLAN") return vlanChoices(session);
    if (name == "SLOT") return texts(boardNumbers(session, &BoardInterface::slot));
    if (name == "SCALAR") return scalarNames();
    return fixedChoices(name);
}

const OptionShape* findOption(const Signature& signature, const std::string& name) {
    const auto found = std::find_if(signature.options.begin(), signature.options.end(),
                                    [&](const OptionShape& shape) { return shape.name == name; });
    return found == signature.options.end() ? nullptr : &*found;
}

Words optionChoices(const Signature& signature) {
    Words names(std::begin(GENERAL_OPTIONS), std::end(GENERAL_OPTIONS));
    for (const OptionShape& shape : signature.options) names.push_back(shape.name);
    return names;
}

// The arguments in front of the last word; options and their values do not count.
size_t argumentsBefore(const Signature& signature, const Words& words) {
    size_t arguments = 0;
    for (size_t at = 0; at + 1 < words.size(); ++at) {
        const OptionShape* option = findOption(signature, words[at]);
        if (option != nullptr && !option->value.empty()) ++at;
        if (option == nullptr && !words[at].starts_with("--")) ++arguments;
    }
    return arguments;
}

// What may stand in the last place of `words`, the words behind a command.
Words argumentChoices(Session& session, const Command& command, const Words& words) {
    const Signature signature = parseSignature(command.signature);
    const OptionShape* before = words.size() > 1 ? findOption(signature, words[words.size() - 2]) : nullptr;
    if (before != nullptr && !before->value.empty()) {
        return placeholderChoices(session, command, before->value);
    }
    if (words.back().starts_with("-")) return optionChoices(signature);
    if (signature.arguments.empty()) return {};
    const size_t position = argumentsBefore(signature, words);
    const size_t last = signature.arguments.size() - 1;
    if (position > last && !signature.arguments[last].repeats) return {};
    return placeholderChoices(session, command, signature.arguments[std::min(position, last)].name);
}

// The general options that may stand in front of an object.
size_t generalWords(const std::vector<std::string>& words) {
    size_t at = 0;
    while (at + 1 < words.size() && words[at].starts_with("--")) at += words[at] == "--timeout" ? 2 : 1;
    return std::min(at, words.size() - 1);
}

Words choices(Session& session, Commands table, Words words) {
    words.erase(words.begin(), words.begin() + static_cast<ptrdiff_t>(generalWords(words)));
    if (words.size() == 1) {
        if (words[0].starts_with("-")) return {std::begin(GENERAL_OPTIONS), std::end(GENERAL_OPTIONS)};
        Words names = objectNames(table);
        names.emplace_back("help");
        return names;
    }
    if (words[0] == "help") words.erase(words.begin());
    if (words.size() == 1) return objectNames(table);
    const Words objects = objectNames(table);
    const Commands commands = commandsOf(table, objects[pickName(objects, words[0], "object")]);
    const bool verbs = *commands[0].verb != '\0';
    if (verbs && words.size() == 2) return verbNames(commands);
    const FoundCommand found = findCommand(table, words);
    words.erase(words.begin(), words.begin() + static_cast<ptrdiff_t>(found.named));
    return argumentChoices(session, *found.command, words);
}

}  // namespace

Words completions(Session& session, Commands table, const Words& words) {
    session.timeoutMs = std::min(session.timeoutMs, TIMEOUT_MS);
    const std::string begun = words.empty() ? "" : words.back();
    Words found;
    try {
        found = choices(session, table, words.empty() ? Words{""} : words);
    } catch (const CommandEnds&) {
        return {};  // no such command
    }
    std::erase_if(found, [&](const std::string& word) { return !word.starts_with(begun); });
    return found;
}
