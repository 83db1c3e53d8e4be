#include "ctl/commands/value_commands.h"

#include <fmt/format.h>

#include "client/link/scalars.h"
#include "client/text/args.h"
#include "client/text/listing.h"
#include "wire/records.h"
#include "wire/scalars.h"

namespace {

struct DebugCategory {
    uint32_t bit;
    const char* name;
};

constexpr DebugCategory DEBUG_CATEGORIES[] = {{CATEGORY_INIT, "initialisation"},
                                              {CATEGORY_WORK, "management and hardware"},
                                              {CATEGORY_EVENT, "events"},
                                              {CATEGORY_SERIAL, "serial table"}};

Cell scalarCell(uint32_t id, const std::string& value) {
    std::vector<uint32_t> numbers;
    switch (id) {
        case SCALAR_VERSION:
            return textCell(value);
        case SCALAR_P2P_ENABLE_VLAN:
            return numberListCell(vlansOfBitList(value));
        case SCALAR_MODE_ABILITY:
            for (const char byte : value) numbers.push_back(static_cast<unsigned char>(byte));
            return numberListCell(numbers);
        case SCALAR_CAPABILITY:
            for (size_t word = 0; word < value.size() / WORD_SIZE; ++word) {
                numbers.push_back(wordAt(value, word));
            }
            return numberListCell(numbers);
        default:
            return numberCell(wordAt(value, 0));
    }
}

// A single value: alone on a line, or an object with one field.
void printValue(const Session& session, const std::string& key, const Cell& value) {
    printLine(session.json ? jsonText({{key, value.json}}) : value.text);
}

void setScalar(Session& session, uint32_t id, const char* name, uint32_t value) {
    const int32_t status = sendScalar(session, id, value);
    if (status != 0) throw refusal(fmt::format("{}: set to {}", name, value), status);
}

Exit listScalars(Session& session, const std::vector<uint32_t>& ids) {
    Listing listing{{{"ID", "id"}, {"SCALAR", "name"}, {"VALUE", "value"}}, {}};
    for (const uint32_t id : ids) {
        listing.rows.push_back(
            {numberCell(id), textCell(scalarName(id)), scalarCell(id, readScalar(session, id))});
    }
    printListing(listing, session.json);
    return Exit::done;
}

Listing ponListing() {
    return {{{"VLAN", "vlan"}, {"PON ISOLATION", "ponIsolation"}}, {}};
}

void addPonRow(Listing& listing, uint32_t vlan, uint32_t state) {
    const bool on = state == PON_ISOLATION_ON;
    const char* word = on ? "on" : state == PON_ISOLATION_OFF ? "off" : "unknown";
    listing.rows.push_back({numberCell(vlan), textCell(word, on ? Tone::good : Tone::warning)});
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
    Listing listing = ponListing();
    for (const uint32_t vlan : readPonOff(session)) addPonRow(listing, vlan, PON_ISOLATION_OFF);
    printListing(listing, session.json);
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
    std::vector<std::string> names;
    for (const DebugCategory& category : DEBUG_CATEGORIES) {
        if ((mask & category.bit) != 0) names.emplace_back(category.name);
    }
    if (session.json) {
        printLine(jsonText({{"debugMask", mask}, {"categories", names}}));
    } else {
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
