#include "ctl/commands/value_commands.h"

#include <fmt/format.h>

#include "lib/answers/row_answers.h"
#include "lib/answers/scalar_answers.h"
#include "lib/link/scalars.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"
#include "wire/records.h"
#include "wire/scalars.h"

namespace {

// A single value: alone on a line, or an object with one field.
void printValue(const Session& session, const std::string& key, const Cell& value) {
    printLine(session.json ? jsonText({{key, value.json}}) : value.text);
}

void setScalar(Session& session, uint32_t id, const char* name, uint32_t value) {
    const int32_t status = sendScalar(session, id, value);
    if (status != 0) throw refusal(fmt::format("{}: set to {}", name, value), status);
}

Exit listScalars(Session& session, const std::vector<uint32_t>& ids) {
    printListing(scalarListing(session, ids), session.json);
    return Exit::done;
}

// `on` and `off`, like `get`, go on after a refusal.
Exit runPonSwitch(Session& session, const Invocation& invocation) {
    Exit result = Exit::done;
    for (const uint32_t vlan : vlanArguments(invocation.arguments)) {
        const int32_t status = sendPon(session, vlan, invocation.verb == "on");
        if (status == 0) continue;
        result = tellEnd(refusal(fmt::format("pon, VLAN {}: {}", vlan, invocation.verb), status));
    }
    return result;
}

Exit runPonGet(Session& session, const Invocation& invocation) {
    Exit result = Exit::done;
    Listing listing = ponListing();
    for (const uint32_t vlan : vlanArguments(invocation.arguments)) {
        const WordReply reply = readPon(session, vlan);
        if (reply.status == 0) {
            addPonRow(listing, vlan, reply.word);
        } else {
            result = tellEnd(refusal(fmt::format("pon, VLAN {}: get", vlan), reply.status));
        }
    }
    printListing(listing, session.json);
    return result;
}

Exit runPonList(Session& session, const Invocation&) {
    printListing(ponOffListing(session), session.json);
    return Exit::done;
}

Exit runModeGet(Session& session, const Invocation&) {
    printValue(session, "mode", numberCell(readNumber(session, SCALAR_MODE)));
    return Exit::done;
}

Exit runModeSet(Session& session, const Invocation& invocation) {
    setScalar(session, SCALAR_MODE, "mode", numberArgument("mode", invocation.arguments[0]));
    return Exit::done;
}

Exit runScalarList(Session& session, const Invocation&) {
    return listScalars(session, scalarIds());
}

Exit runScalarGet(Session& session, const Invocation& invocation) {
    if (invocation.arguments.empty()) return runScalarList(session, invocation);
    std::vector<uint32_t> ids;
    for (const std::string& text : invocation.arguments) ids.push_back(scalarId(text));
    if (ids.size() > 1) return listScalars(session, ids);
    printValue(session, scalarName(ids[0]), scalarCell(ids[0], readScalar(session, ids[0])));
    return Exit::done;
}

Exit runDebug(Session& session, const Invocation& invocation) {
    if (!invocation.arguments.empty()) {
        setScalar(session, SCALAR_DEBUG_MASK, "debug mask", numberArgument("mask", invocation.arguments[0]));
        return Exit::done;
    }
    const uint32_t mask = readNumber(session, SCALAR_DEBUG_MASK);
    if (session.json) {
        printLine(jsonText(debugAnswer(mask)));
    } else {
        const std::vector<std::string> names = debugCategories(mask);
        printLine(fmt::format("{:#x}: {}", mask, names.empty() ? "silent" : joinChoices(names, "and")));
    }
    return Exit::done;
}

constexpr Command VALUE_COMMANDS[] = {
    {.object = "pon",
     .verb = "on",
     .signature = "VLAN...",
     .help = "switch PON isolation of VLANs on",
     .example = "pon on 10",
     .run = runPonSwitch},
    {.object = "pon",
     .verb = "off",
     .signature = "VLAN...",
     .help = "switch PON isolation of VLANs off",
     .example = "pon off 10 20-23",
     .run = runPonSwitch},
    {.object = "pon",
     .verb = "get",
     .signature = "VLAN...",
     .help = "show the PON isolation of VLANs",
     .example = "pon get 10",
     .run = runPonGet,
     .json = "an array of {vlan, ponIsolation}, which is on or off"},
    {.object = "pon",
     .verb = "list",
     .help = "show the VLANs whose PON isolation is off",
     .example = "pon list",
     .run = runPonList,
     .json = "an array of {vlan, ponIsolation}, which is off"},
    {.object = "mode",
     .verb = "get",
     .help = "show the isolation mode",
     .example = "mode get",
     .run = runModeGet,
     .json = "{mode}"},
    {.object = "mode",
     .verb = "set",
     .signature = "MODE",
     .help = "set the isolation mode",
     .example = "mode set 1",
     .run = runModeSet},
    {.object = "scalar",
     .verb = "get",
     .signature = "[SCALAR...]",
     .help = "show values by name or number",
     .example = "scalar get version",
     .run = runScalarGet,
     .json = "of one scalar {NAME: value}, of several an array of {id, name, value}"},
    {.object = "scalar",
     .verb = "list",
     .help = "show all readable values",
     .example = "scalar list",
     .run = runScalarList,
     .json = "an array of {id, name, value}"},
    {.object = "debug",
     .signature = "[MASK]",
     .help = "show or set which debug texts are written",
     .example = "debug 0xf",
     .run = runDebug,
     .json = "{debugMask, categories}"},
};

}  // namespace

Commands valueCommands() {
    return VALUE_COMMANDS;
}
