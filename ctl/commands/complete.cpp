#include "ctl/commands/complete.h"

#include <algorithm>
#include <set>

#include "ctl/client/interfaces.h"
#include "ctl/client/rows.h"
#include "ctl/client/settings.h"
#include "ctl/commands/commands.h"
#include "ctl/text/output.h"

namespace {

constexpr int64_t TIMEOUT_MS = 500;  // nobody waits longer for a key

const char* const GENERAL_OPTIONS[] = {"--timeout", "--json", "--help"};

bool isListed(const std::string& word, std::initializer_list<const char*> list) {
    return std::any_of(list.begin(), list.end(), [&](const char* one) { return word == one; });
}

// A placeholder of a signature without its marks: "[INTERFACE...]" is INTERFACE.
std::string bareName(const std::string& placeholder) {
    const size_t first = placeholder.find_first_not_of('[');
    const size_t end = placeholder.find_first_of(".]", first);
    return placeholder.substr(first, end - first);
}

std::vector<std::string> interfaceChoices(Session& session, bool trunks) {
    std::vector<std::string> names;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.kind == "trunk" || (!trunks && interface.kind != "vlan")) {
            names.push_back(interface.name);
        }
    }
    return names;
}

std::vector<std::string> texts(const std::set<uint32_t>& numbers) {
    std::vector<std::string> words;
    for (const uint32_t number : numbers) {
        words.push_back(std::to_string(number));
    }
    return words;
}

// The numbers of a family's groups, or their VLANs.
void addScopes(Session& session, const RowFamily& family, bool vlans, std::set<uint32_t>& numbers) {
    std::vector<Row> rows;
    if (collectRows(session, family, nullptr, false, rows) == Exit::done) {
        for (const Row& row : rows) {
            numbers.insert(vlans ? row.scope.vlan : row.scope.number);
        }
    }
}

std::vector<std::string> vlanChoices(Session& session) {
    std::set<uint32_t> vlans;
    addScopes(session, VLAN_GROUP_ROWS, true, vlans);
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.vlan != 0) {
            vlans.insert(interface.vlan);
        }
    }
    return texts(vlans);
}

std::vector<std::string> slotChoices(Session& session) {
    std::set<uint32_t> slots;
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.slot != 0) {
            slots.insert(interface.slot);
        }
    }
    return texts(slots);
}

std::vector<std::string> placeholderChoices(Session& session, const Command& command,
                                            const std::string& placeholder) {
    const std::string name = bareName(placeholder);
    if (isListed(name, {"INTERFACE", "SOURCE", "TARGET", "FROM", "TO"})) {
        return interfaceChoices(session, false);
    }
    if (name == "TRUNK") {
        return interfaceChoices(session, true);
    }
    if (name == "GROUP") {
        std::set<uint32_t> groups;
        const bool plain = std::string_view(command.object) == GROUP_ROWS.object;
        addScopes(session, plain ? GROUP_ROWS : VLAN_GROUP_ROWS, false, groups);
        return texts(groups);
    }
    if (name == "VLAN") {
        return vlanChoices(session);
    }
    if (name == "SLOT") {
        return slotChoices(session);
    }
    if (name == "SCALAR") {
        return scalarNames();
    }
    // Alternatives stand in the signature themselves, the fixed ones in lower case.
    std::vector<std::string> choices;
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

// The signature's words, options with their values apart.
struct Places {
    std::vector<std::string> positional;
    std::vector<GivenOption> options;  // with the placeholder of the value
};

Places placesOf(const Command& command) {
    Places places;
    const std::vector<std::string> words = splitWords(command.signature);
    for (size_t at = 0; at < words.size(); ++at) {
        const size_t first = words[at].find_first_not_of('[');
        if (words[at].compare(first, 2, "--") != 0) {
            places.positional.push_back(words[at]);
            continue;
        }
        const bool valued = words[at].back() != ']' && at + 1 < words.size();
        places.options.push_back(
            {words[at].substr(first, words[at].find(']') - first), valued ? words[at + 1] : ""});
        at += valued ? 1 : 0;
    }
    return places;
}

// What may stand in the last place of `words`, the words behind a command.
std::vector<std::string> argumentChoices(Session& session, const Command& command,
                                         const std::vector<std::string>& words) {
    const Places places = placesOf(command);
    if (words.size() > 1) {
        const std::string* value = optionValue(places.options, words[words.size() - 2]);
        if (value != nullptr && !value->empty()) {
            return placeholderChoices(session, command, *value);
        }
    }
    if (words.back().starts_with("-")) {
        std::vector<std::string> names(std::begin(GENERAL_OPTIONS), std::end(GENERAL_OPTIONS));
        for (const GivenOption& option : places.options) {
            names.push_back(option.name);
        }
        return names;
    }
    size_t position = 0;
    for (size_t at = 0; at + 1 < words.size(); ++at) {
        const std::string* value = optionValue(places.options, words[at]);
        if (value != nullptr || words[at].starts_with("--")) {
            at += value != nullptr && !value->empty() ? 1 : 0;
        } else {
            ++position;
        }
    }
    if (places.positional.empty()) {
        return {};
    }
    const size_t last = places.positional.size() - 1;
    const bool beyond = position > last && places.positional[last].find("...") == std::string::npos;
    return beyond ? std::vector<std::string>()
                  : placeholderChoices(session, command, places.positional[std::min(position, last)]);
}

// The general options that may stand in front of an object.
size_t generalWords(const std::vector<std::string>& words) {
    size_t at = 0;
    while (at + 1 < words.size() && words[at].starts_with("--")) {
        at += words[at] == "--timeout" ? 2 : 1;
    }
    return std::min(at, words.size() - 1);
}

std::vector<std::string> choices(Session& session, std::vector<std::string> words) {
    words.erase(words.begin(), words.begin() + static_cast<ptrdiff_t>(generalWords(words)));
    if (words.size() == 1) {
        if (words[0].starts_with("-")) {
            return {std::begin(GENERAL_OPTIONS), std::end(GENERAL_OPTIONS)};
        }
        std::vector<std::string> names = objectNames();
        names.emplace_back("help");
        return names;
    }
    if (words.size() > 2 && words[0] == "help") {
        words.erase(words.begin());
    } else if (words[0] == "help") {
        return objectNames();
    }
    std::string error;
    const std::vector<std::string> objects = objectNames();
    const std::string& object = objects[pickName(objects, words[0], "object", error)];
    if (!error.empty()) {
        return {};
    }
    const Command* command = &commandsOf(object)[0];
    if (*command->verb == '\0') {
        return argumentChoices(session, *command, {words.begin() + 1, words.end()});
    }
    std::vector<std::string> verbs;
    for (const Command& one : commandsOf(object)) {
        verbs.emplace_back(one.verb);
    }
    if (words.size() == 2) {
        return verbs;
    }
    command += pickName(verbs, words[1], "verb", error);
    return error.empty() ? argumentChoices(session, *command, {words.begin() + 2, words.end()})
                         : std::vector<std::string>();
}

}  // namespace

std::vector<std::string> completions(Session& session, const std::vector<std::string>& words) {
    session.timeoutMs = std::min(session.timeoutMs, TIMEOUT_MS);
    session.quiet = true;
    std::vector<std::string> found = choices(session, words.empty() ? std::vector<std::string>{""} : words);
    const std::string begun = words.empty() ? "" : words.back();
    std::erase_if(found, [&](const std::string& word) { return !word.starts_with(begun); });
    return found;
}

Exit runComplete(Session& session, const Invocation& invocation) {
    for (const std::string& word : completions(session, invocation.arguments)) {
        printLine(safeText(word));
    }
    return Exit::done;
}
