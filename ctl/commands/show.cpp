#include "ctl/commands/show.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "client/link/interfaces.h"
#include "client/link/printouts.h"
#include "client/text/args.h"
#include "client/text/listing.h"
#include "ctl/commands/status.h"

namespace {

// A printing function of the daemon, and its printout as JSON.
struct Printout {
    const char* verb;
    const char* function;
    std::string (*json)(Session& session, const std::string& text);
};

// An interface's name in JSON, null for 0.
Json interfaceJson(Session& session, uint32_t number) {
    return number != 0 ? Json(interfaceName(session, number)) : Json();
}

// The settings by their names, a line for each; a number stays one unless it is written in hexadecimal.
std::string settingsJson(Session&, const std::string& text) {
    std::vector<std::string> fields;
    for (const auto& [name, value] : readSettings(text)) {
        uint32_t number = 0;
        const bool bare = parseGivenNumber(value, number) && !value.starts_with("0x");
        fields.push_back(jsonField(name, jsonText(bare ? Json(number) : Json(value))));
    }
    return jsonLines("{", fields, "}");
}

std::string serialJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        rows.push_back({{"serial", row.front()},
                        {"interface", interfaceJson(session, row.back())},
                        {"number", row.back()}});
    }
    return jsonRows(rows);
}

std::string groupsJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        rows.push_back({{"group", row.front()},
                        {"vlan", row.size() == 3 ? Json(row[1]) : Json()},
                        {"interface", interfaceJson(session, row.back())},
                        {"number", row.back()}});
    }
    return jsonRows(rows);
}

std::string pairsJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const PrintedPair& pair : readPairs(text)) {
        rows.push_back({{"source", interfaceJson(session, pair.source)},
                        {"sourceNumber", pair.source},
                        {"target", interfaceJson(session, pair.target)},
                        {"targetNumber", pair.target},
                        {"groups", pair.groups}});
    }
    return jsonRows(rows);
}

std::string portsJson(Session& session, const std::string& text) {
    Json rows = Json::array();
    for (const std::vector<uint32_t>& row : readNumbers(text)) {
        rows.push_back({{"interface", interfaceJson(session, row.back())}, {"number", row.back()}});
    }
    return jsonRows(rows);
}

constexpr Printout PRINTOUTS[] = {
    {.verb = "global", .function = "portIsolateGlobalShow", .json = settingsJson},
    {.verb = "serial", .function = "portIsolateSerialShow", .json = serialJson},
    {.verb = "groups", .function = "portIsolateGrpShow", .json = groupsJson},
    {.verb = "pairs", .function = "portIsolateIfPairShow", .json = pairsJson},
    {.verb = "inner", .function = "portIsolateIfInnerShow", .json = pairsJson},
    {.verb = "ports", .function = "portIsolatePortShow", .json = portsJson},
};

Exit runShow(Session& session, const Invocation& invocation) {
    const Printout* printout =
        std::find_if(std::begin(PRINTOUTS), std::end(PRINTOUTS),
                     [&](const Printout& known) { return invocation.verb == known.verb; });
    const std::string text = askShell(session, printout->function, "show " + invocation.verb);
    if (session.json) {
        printLine(printout->json(session, text));
    } else {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    tellDoubt(session);
    return Exit::done;
}

constexpr Command SHOW_COMMANDS[] = {
    {.object = "show",
     .verb = "global",
     .help = "show the daemon's printout of its settings",
     .example = "show global",
     .run = runShow,
     .json = "an object of the settings by their names"},
    {.object = "show",
     .verb = "serial",
     .help = "show the daemon's printout of the serial numbers",
     .example = "show serial",
     .run = runShow,
     .json = "an array of {serial, interface, number}; number 0 for those that are free"},
    {.object = "show",
     .verb = "groups",
     .help = "show the daemon's printout of both group tables",
     .example = "show groups",
     .run = runShow,
     .json = "an array of {group, vlan, interface, number}; vlan is null for plain groups"},
    {.object = "show",
     .verb = "pairs",
     .help = "show the daemon's printout of the pairs",
     .example = "show pairs",
     .run = runShow,
     .json = "an array of {source, sourceNumber, target, targetNumber, groups}"},
    {.object = "show",
     .verb = "inner",
     .help = "show the daemon's printout of the isolated port pairs",
     .example = "show inner",
     .run = runShow,
     .json =
         "an array of {source, sourceNumber, target, targetNumber, groups}: the groups that claim two ports"},
    {.object = "show",
     .verb = "ports",
     .help = "show the daemon's printout of the ports in use",
     .example = "show ports",
     .run = runShow,
     .json = "an array of {interface, number}"},
};

}  // namespace

Commands showCommands() {
    return SHOW_COMMANDS;
}
