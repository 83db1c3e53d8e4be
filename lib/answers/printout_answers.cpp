#include "lib/answers/printout_answers.h"

#include <algorithm>
#include <iterator>

#include "lib/link/interfaces.h"
#include "lib/link/printouts.h"
#include "lib/text/args.h"

namespace {

// An interface's name in JSON, null for 0.
Json interfaceJson(Session& session, uint32_t number) {
    return number != 0 ? Json(interfaceName(session, number)) : Json();
}

// The settings by their names; a number stays one unless it is written in hexadecimal.
Json settingsJson(Session&, const std::string& text) {
    Json settings = Json::object();
    for (const auto& [name, value] : readSettings(text)) {
        uint32_t number = 0;
        const bool bare = parseGivenNumber(value, number) && !value.starts_with("0x");
        settings[name] = bare ? Json(number) : Json(value);
    }
    return settings;
}

Json serialJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        rows.push_back({{"serial", row.front()},
                        {"interface", interfaceJson(session, row.back())},
                        {"number", row.back()}});
    }
    return rows;
}

Json groupsJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        rows.push_back({{"group", row.front()},
                        {"vlan", row.size() == 3 ? Json(row[1]) : Json()},
                        {"interface", interfaceJson(session, row.back())},
                        {"number", row.back()}});
    }
    return rows;
}

Json pairsJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const PrintedPair& pair : readPairs(text)) {
        rows.push_back({{"source", interfaceJson(session, pair.source)},
                        {"sourceNumber", pair.source},
                        {"target", interfaceJson(session, pair.target)},
                        {"targetNumber", pair.target},
                        {"groups", pair.groups}});
    }
    return rows;
}

Json portsJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        rows.push_back({{"interface", interfaceJson(session, row.back())}, {"number", row.back()}});
    }
    return rows;
}

constexpr Printout PRINTOUTS[] = {
    {.verb = "global", .function = "portIsolateGlobalShow", .answer = settingsJson},
    {.verb = "serial", .function = "portIsolateSerialShow", .answer = serialJson},
    {.verb = "groups", .function = "portIsolateGrpShow", .answer = groupsJson},
    {.verb = "pairs", .function = "portIsolateIfPairShow", .answer = pairsJson},
    {.verb = "inner", .function = "portIsolateIfInnerShow", .answer = pairsJson},
    {.verb = "ports", .function = "portIsolatePortShow", .answer = portsJson},
};

}  // namespace

const Printout* findPrintout(std::string_view verb) {
    const auto* const found = std::find_if(std::begin(PRINTOUTS), std::end(PRINTOUTS),
                                           [=](const Printout& known) { return verb == known.verb; });
    return found != std::end(PRINTOUTS) ? found : nullptr;
}

std::string readPrintout(Session& session, const Printout& printout) {
    return askShell(session, printout.function, std::string("show ") + printout.verb);
}
