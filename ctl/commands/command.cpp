#include "ctl/commands/command.h"

#include <algorithm>

#include "lib/text/args.h"

std::optional<uint32_t> countOption(const Invocation& invocation) {
    const std::string* count = fieldValue(invocation.options, "--count");
    return count != nullptr ? std::optional(numberArgument("count", *count)) : std::nullopt;
}

std::vector<std::string> objectNames(Commands table) {
    std::vector<std::string> names;
    for (const Command& command : table) {
        if (names.empty() || names.back() != command.object) names.emplace_back(command.object);
    }
    return names;
}

Commands commandsOf(Commands table, const std::string& object) {
    const auto first = std::find_if(table.begin(), table.end(),
                                    [&](const Command& command) { return object == command.object; });
    const auto last =
        std::find_if(first, table.end(), [&](const Command& command) { return object != command.object; });
    return {first, last};
}

std::vector<std::string> verbNames(Commands commands) {
    std::vector<std::string> verbs;
    for (const Command& command : commands) verbs.emplace_back(command.verb);
    return verbs;
}

FoundCommand findCommand(Commands table, const std::vector<std::string>& words) {
    const std::vector<std::string> objects = objectNames(table);
    const std::string& object = objects[pickName(objects, words[0], "object")];
    const Commands commands = commandsOf(table, object);
    if (*commands[0].verb == '\0' || words.size() == 1) return {&commands[0], 1};
    return {&commands[pickName(verbNames(commands), words[1], "verb", object + ": ")], 2};
}
