#include "lib/link/interfaces.h"

#include <fmt/format.h>

#include <algorithm>

#include "lib/text/args.h"
#include "lib/text/output.h"
#include "wire/framing.h"

namespace {

void askInterfaces(Session& session) {
    if (session.interfacesAsked) return;
    session.interfacesAsked = true;
    const auto keep = [&session](std::string_view line) {
        const std::optional<BoardInterface> interface = parseBoardInterface(line);
        if (interface) session.interfaces.push_back(*interface);
        return true;
    };
    const LineAnswer answer = session.board("list", false, keep);
    if (answer.result == LineResult::done) return;
    session.interfacesFailure = answer.text;
    session.interfaces.clear();
}

const BoardInterface* findName(const Session& session, const std::string& name) {
    for (const BoardInterface& interface : session.interfaces) {
        if (interface.name == name) return &interface;
    }
    return nullptr;
}

std::string unknownName(Session& session, const std::string& name, const std::string& given) {
    if (!session.interfacesFailure.empty()) {
        return "cannot ask the board for interface \"" + given + "\" at " + session.root + BOARD_SOCKET_PATH +
               ": " + session.interfacesFailure + "; interface numbers work without it";
    }
    std::string sentence = "no interface \"" + name + "\"";
    if (name != given) sentence += ", which is in the range \"" + given + "\"";
    std::vector<std::string> names;
    for (const BoardInterface& interface : session.interfaces) names.push_back(interface.name);
    const std::vector<std::string> near = nearNames(names, name);
    return sentence + (near.empty() ? "; `portisolatectl board list` shows all"
                                    : "; did you mean " + joinChoices(near, "or") + "?");
}

// The names or numbers that one text stands for.
std::vector<std::string> expandNames(Session& session, const std::string& text) {
    std::vector<std::string> range = expandWord(text);
    if (range.front() == text) return range;
    askInterfaces(session);
    return findName(session, text) != nullptr ? std::vector<std::string>{text} : range;
}

}  // namespace

const std::vector<BoardInterface>& boardInterfaces(Session& session) {
    askInterfaces(session);
    return session.interfaces;
}

void forgetInterfaces(Session& session) {
    session.interfacesAsked = false;
    session.interfacesFailure.clear();
    session.interfaces.clear();
}

bool isSimulated(Session& session) {
    const std::vector<BoardInterface>& all = boardInterfaces(session);
    return !all.empty() && std::all_of(all.begin(), all.end(), [](const BoardInterface& interface) {
        return interface.device.empty();
    });
}

const BoardInterface* findInterface(Session& session, uint32_t number) {
    for (const BoardInterface& interface : boardInterfaces(session)) {
        if (interface.number == number) return &interface;
    }
    return nullptr;
}

FoundInterfaces findInterfaces(Session& session, const std::string& text) {
    FoundInterfaces found;
    for (const std::string& name : expandNames(session, text)) {
        askInterfaces(session);
        const BoardInterface* interface = findName(session, name);
        uint32_t number = interface != nullptr ? interface->number : 0;
        if (interface == nullptr && !parseGivenNumber(name, number)) {
            return {{}, unknownName(session, name, text)};
        }
        found.numbers.push_back(number);
    }
    return found;
}

std::vector<uint32_t> resolveInterfaces(Session& session, std::span<const std::string> texts) {
    std::vector<uint32_t> numbers;
    for (const std::string& text : texts) {
        const FoundInterfaces found = findInterfaces(session, text);
        if (!found.wrong.empty()) {
            const bool asked = session.interfacesFailure.empty();
            throw CommandEnds{asked ? Exit::usage : Exit::unreachable, found.wrong};
        }
        for (const uint32_t number : found.numbers) {
            if (std::find(numbers.begin(), numbers.end(), number) == numbers.end()) numbers.push_back(number);
        }
    }
    return numbers;
}

uint32_t resolveInterface(Session& session, const std::string& text) {
    const std::vector<uint32_t> numbers = resolveInterfaces(session, {&text, 1});
    if (numbers.size() == 1) return numbers.front();
    throw misuse("\"" + text + "\" stands for several interfaces: give one here");
}

std::string unlistedInterface(Session& session, const std::vector<uint32_t>& numbers) {
    if (boardInterfaces(session).empty()) return {};
    for (const uint32_t number : numbers) {
        if (findInterface(session, number) != nullptr) continue;
        return fmt::format("the board has no interface {}; `portisolatectl board list` shows all", number);
    }
    return {};
}

std::string interfaceName(Session& session, uint32_t number) {
    const BoardInterface* interface = findInterface(session, number);
    return interface != nullptr ? interface->name : std::to_string(number);
}

InterfaceNamer boardNamer(Session& session) {
    return [&session](uint32_t number) { return interfaceName(session, number); };
}

std::string interfaceNames(Session& session, const std::vector<uint32_t>& numbers) {
    std::vector<std::string> names;
    for (const uint32_t number : numbers) names.push_back(interfaceName(session, number));
    return joinChoices(names, "and");
}
