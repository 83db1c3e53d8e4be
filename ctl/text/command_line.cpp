#include "ctl/text/command_line.h"

#include <algorithm>
#include <cstddef>

#include "common/text.h"
#include "lib/text/args.h"
#include "lib/text/exit.h"

namespace {

// The options without a value.
bool isFlag(std::string_view word) {
    for (const char* flag : {"--dry-run", "--empty", "--once", "--all", "--blocked", "--alike"}) {
        if (word == flag) return true;
    }
    return false;
}

// Moves the time-out from the options of the command to the line's own.
void takeTimeout(CommandLine& line) {
    const std::string* text = fieldValue(line.options, "--timeout");
    if (text == nullptr) return;
    if (!parseSeconds(*text, line.timeoutMs)) {
        throw misuse("--timeout " + *text + ": give seconds above 0, such as 2 or 0.5");
    }
    std::erase_if(line.options, [](const Field& option) { return option.name == "--timeout"; });
}

Placeholder parsePlaceholder(const std::string& text) {
    const size_t first = text.front() == '[' ? 1 : 0;
    const size_t end = std::min(text.find_first_of(".]", first), text.size());
    const bool repeats = text.find("...") != std::string::npos;
    return {
        .text = text, .name = text.substr(first, end - first), .optional = first != 0, .repeats = repeats};
}

std::string findOptionMisfit(const Signature& signature, const std::vector<Field>& options) {
    for (auto option = options.begin(); option != options.end(); ++option) {
        const auto named = [&](const auto& other) { return other.name == option->name; };
        if (std::none_of(signature.options.begin(), signature.options.end(), named)) {
            return "there is no option " + option->name + " here";
        }
        if (std::any_of(options.begin(), option, named)) return "option " + option->name + " is given twice";
    }
    for (const OptionShape& shape : signature.options) {
        if (shape.required && fieldValue(options, shape.name) == nullptr) {
            return "option " + shape.name + " is missing";
        }
    }
    return {};
}

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& given) {
    CommandLine line;
    for (size_t at = 0; at < given.size(); ++at) {
        const std::string& word = given[at];
        if (word == "--") {
            line.words.insert(line.words.end(), given.begin() + static_cast<ptrdiff_t>(at) + 1, given.end());
            break;
        }
        if (word == "--help" || word == "-h") {
            line.help = true;
        } else if (word == "--version") {
            line.version = true;
        } else if (word == "--json") {
            line.json = true;
        } else if (!word.starts_with("--")) {
            line.words.push_back(word);
        } else if (isFlag(word) || word.find('=') != std::string::npos) {
            line.options.push_back(splitField(word));
        } else if (at + 1 < given.size()) {
            line.options.push_back({word, given[++at]});
        } else {
            throw misuse("option " + word + " lacks its value");
        }
    }
    takeTimeout(line);
    return line;
}

Signature parseSignature(std::string_view text) {
    Signature signature;
    const std::vector<std::string> words = splitWords(text);
    for (size_t at = 0; at < words.size(); ++at) {
        const Placeholder word = parsePlaceholder(words[at]);
        if (!word.name.starts_with("--")) {
            signature.arguments.push_back(word);
            continue;
        }
        const std::string value = isFlag(word.name) ? "" : parsePlaceholder(words[++at]).name;
        signature.options.push_back({.name = word.name, .value = value, .required = !word.optional});
    }
    return signature;
}

std::string findMisfit(const Signature& signature, const std::vector<std::string>& arguments,
                       const std::vector<Field>& options) {
    const std::vector<Placeholder>& places = signature.arguments;
    const size_t least = static_cast<size_t>(std::count_if(
        places.begin(), places.end(), [](const Placeholder& place) { return !place.optional; }));
    const bool endless = !places.empty() && places.back().repeats;
    if (arguments.size() < least) return places[arguments.size()].text + " is missing";
    if (arguments.size() > places.size() && !endless) {
        return "\"" + arguments[places.size()] + "\" is one argument too many";
    }
    return findOptionMisfit(signature, options);
}
