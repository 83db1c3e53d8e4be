#include "ctl/client/interfaces.h"

#include <algorithm>

#include "ctl/text/output.h"
#include "wire/framing.h"

namespace {

void askInterfaces(Session& session) {
    if (session.interfacesAsked) {
        return;
    }
    session.interfacesAsked = true;
    const auto keep = [&session](std::string_view line) {
        BoardInterface interface;
        if (parseBoardInterface(line, interface)) {
            session.interfaces.push_back(interface);
        }
        return true;
    };
    if (boardRequest("list", session.timeoutMs, false, keep, session.interfacesFailure) != LineResult::done) {
        session.interfaces.clear();
    }
}

const BoardInterface* findName(const Session& session, const std::string& name) {
    for (const BoardInterface& interface : session.interfaces) {
        if (interface.name == name) {
            return &interface;
        }
    }
    return nullptr;
}

std::string unknownName(Session& session, const std::string& name, const std::string& given) {
    if (!session.interfacesFailure.empty()) {
        return "cannot ask the board for interface \"" + given + "\" at " + socketPath(BOARD_SOCKET_PATH) +
               ": " + session.interfacesFailure + "; interface numbers work without it";
    }
    std::string sentence = "no interface \"" + name + "\"";
    if (name != given) {
        sentence += ", which is in the range \"" + given + "\"";
    }
    std::vector<std::string> names;
    for (const BoardInterface& interface : session.interfaces) {
        names.push_back(interface.name);
    }
    const std::vector<std::string> near = nearNames(names, name);
    return sentence + (near.empty() ? "; `portisolatectl board list` shows all"
                                    : "; did you mean " + joinChoices(near, "or") + "?");
}

// What one argument stands for; a name that looks like a range is a name first.
std::vector<std::string> expandNames(Session& session, const std::string& text) {
    std::vector<std::string> range = expandRange(text);
    uint32_t number;
    if (range.empty()) {
        return {text};
    }
    if (!parseNumber(range.front(), number)) {
        askInterfaces(session);
        if (findName(session, text) != nullptr) {
            return {text};
        }
    }
    return range;
}

}  // namespace

const std::vector<BoardInterface>& boardInterfaces(Session& session) {
    askInterfaces(session);
    return session.interfaces;
}

std::string findInterfaces(Session& session, const std::string& text, std::vector<uint32_t>& numbers) {
    for (const std::string& name : expandNames(session, text)) {
        uint32_t number = 0;
        if (!parseNumber(name, number)) {
            askInterfaces(session);
            const BoardInterface* interface = findName(session, name);
            if (interface == nullptr) {
                return unknownName(session, name, text);
            }
            number = interface->number;
        }
        numbers.push_back(number);
    }
    return {};
}

Exit resolveInterfaces(Session& session, std::span<const std::string> texts, std::vector<uint32_t>& numbers) {
    for (const std::string& text : texts) {
        std::vector<uint32_t> found;
        const std::string wrong = findInterfaces(session, text, found);
        if (!wrong.empty()) {
            complain(wrong);
            return session.interfacesFailure.empty() ? Exit::usage : Exit::unreachable;
        }
        for (const uint32_t number : found) {
            if (std::find(numbers.begin(), numbers.end(), number) == numbers.end()) {
                numbers.push_back(number);
            }
        }
    }
    return Exit::done;
}

Exit resolveInterface(Session& session, const std::string& text, uint32_t& number) {
    std::vector<uint32_t> numbers;
    const Exit exit = resolveInterfaces(session, {&text, 1}, numbers);
    if (exit != Exit::done) {
        return exit;
    }
    if (numbers.size() != 1) {
        return misuse("\"" + text + "\" stands for several interfaces, and one is wanted here");
    }
    number = numbers.front();
    return Exit::done;
}

std::string interfaceName(Session& session, uint32_t number) {
    askInterfaces(session);
    for (const BoardInterface& interface : session.interfaces) {
        if (interface.number == number) {
            return interface.name;
        }
    }
    return std::to_string(number);
}

std::string interfaceNames(Session& session, const std::vector<uint32_t>& numbers) {
    std::vector<std::string> names;
    for (const uint32_t number : numbers) {
        names.push_back(interfaceName(session, number));
    }
    return joinChoices(names, "and");
}
