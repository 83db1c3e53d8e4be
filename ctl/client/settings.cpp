#include "ctl/client/settings.h"

#include "ctl/text/output.h"
#include "wire/framing.h"
#include "wire/records.h"
#include "wire/status.h"

namespace {

constexpr uint32_t PON_COLUMN = 1;

struct ScalarName {
    uint32_t id;
    const char* name;
};

// The readable ones; names are part of what scripts rely on.
constexpr ScalarName SCALARS[] = {
    {SCALAR_MODE, "mode"},
    {SCALAR_MAX_PORT_NUM, "max-ports"},
    {SCALAR_MAX_PORT_NUM_PER_GRP, "max-members"},
    {SCALAR_MAX_ISO_GRP_NUM, "max-groups"},
    {SCALAR_MAX_UNI_ISO_PORT_NUM, "max-targets"},
    {SCALAR_GRP_COUNT, "group-rows"},
    {SCALAR_GRP_POOL_FREE, "group-rows-free"},
    {SCALAR_INNER_COUNT, "inner-rows"},
    {SCALAR_PAIR_COUNT, "pair-rows"},
    {SCALAR_PAIR_POOL_FREE, "pair-rows-free"},
    {SCALAR_DEBUG_MASK, "debug-mask"},
    {SCALAR_VERSION, "version"},
    {SCALAR_MODE_ABILITY, "mode-ability"},
    {SCALAR_DEFAULT_MODE, "default-mode"},
    {SCALAR_P2P_ENABLE_VLAN, "pon-off-vlans"},
    {SCALAR_VLAN_GROUP_ENABLE, "vlan-group-enable"},
    {SCALAR_CAPABILITY, "capability"},
};

struct DebugCategory {
    uint32_t bit;
    const char* name;
};

constexpr DebugCategory DEBUG_CATEGORIES[] = {
    {0x1, "initialisation"}, {0x2, "management and hardware"}, {0x4, "events"}, {0x8, "serial table"}};

const char* ponWord(uint32_t state) {
    return state == PON_ISOLATION_ON ? "on" : state == PON_ISOLATION_OFF ? "off" : "unknown";
}

std::string wordBytes(uint32_t word) {
    std::string bytes;
    appendWord(bytes, word);
    return bytes;
}

Exit sendStatus(Session& session, const Request& request, int32_t& status) {
    Reply reply;
    const Exit exit = ask(session, request, reply);
    status = reply.status;
    return exit;
}

Exit sendScalar(Session& session, uint32_t id, uint32_t value, int32_t& status) {
    return sendStatus(session, {OP_SCALAR_SET, id, {}, wordBytes(value), 0}, status);
}

Exit setScalar(Session& session, uint32_t id, const char* name, uint32_t value) {
    int32_t status = 0;
    const Exit exit = sendScalar(session, id, value, status);
    if (exit != Exit::done || status == 0) {
        return exit;
    }
    return refuse(formatText("%s: set to %u", name, value), status);
}

Exit getScalar(Session& session, uint32_t id, const std::string& name, std::string& value) {
    const uint32_t capacity = portIsolateScalarIsBuffer(id) ? COMMAND_VALUE_MAX : sizeof(uint32_t);
    Reply reply;
    const Exit exit = ask(session, {OP_SCALAR_GET, id, {}, {}, capacity}, reply);
    if (exit != Exit::done) {
        return exit;
    }
    if (reply.status != 0) {
        return refuse("scalar " + name + ": get", reply.status);
    }
    if (!portIsolateScalarIsBuffer(id) && reply.value.size() != sizeof(uint32_t)) {
        return brokenProtocol(formatText("scalar %s of %zu bytes", name.c_str(), reply.value.size()));
    }
    value = reply.value;
    return Exit::done;
}

Cell scalarCell(uint32_t id, const std::string& value) {
    std::vector<uint32_t> numbers;
    switch (id) {
        case SCALAR_VERSION:
            return textCell(value);
        case SCALAR_P2P_ENABLE_VLAN:
            return numberListCell(vlansOfBitList(value));
        case SCALAR_MODE_ABILITY:
            for (const char byte : value) {
                numbers.push_back(static_cast<unsigned char>(byte));
            }
            return numberListCell(numbers);
        case SCALAR_CAPABILITY:
            for (size_t word = 0; word < value.size() / sizeof(uint32_t); ++word) {
                numbers.push_back(wordAt(value, word));
            }
            return numberListCell(numbers);
        default:
            return numberCell(wordAt(value, 0));
    }
}

}  // namespace

std::string scalarName(uint32_t id) {
    for (const ScalarName& scalar : SCALARS) {
        if (scalar.id == id) {
            return scalar.name;
        }
    }
    return std::to_string(id);
}

std::vector<std::string> scalarNames() {
    std::vector<std::string> names;
    for (const ScalarName& scalar : SCALARS) {
        names.emplace_back(scalar.name);
    }
    return names;
}

namespace {

Exit readScalarId(const std::string& text, uint32_t& id) {
    if (parseNumber(text, id)) {
        return Exit::done;
    }
    std::string error;
    const size_t at = pickName(scalarNames(), text, "scalar", error);
    id = SCALARS[at].id;
    return error.empty() ? Exit::done : misuse(error);
}

Exit listScalars(Session& session, const std::vector<uint32_t>& ids) {
    Listing listing{{{"ID", "id"}, {"SCALAR", "name"}, {"VALUE", "value"}}, {}};
    for (const uint32_t id : ids) {
        std::string value;
        const std::string name = scalarName(id);
        const Exit exit = getScalar(session, id, name, value);
        if (exit != Exit::done) {
            return exit;
        }
        listing.rows.push_back({numberCell(id), textCell(name), scalarCell(id, value)});
    }
    printListing(listing, session.json);
    return Exit::done;
}

// A single value: alone on a line, or an object with one field.
void printValue(const Session& session, const char* key, const Cell& value) {
    printLine(session.json ? jsonObject({{nullptr, key}}, {value}) : value.text);
}

Listing ponListing() {
    return {{{"VLAN", "vlan"}, {"PON ISOLATION", "ponIsolation"}}, {}};
}

void addPonRow(Listing& listing, uint32_t vlan, uint32_t state) {
    const Tone tone = state == PON_ISOLATION_ON ? Tone::good : Tone::warning;
    listing.rows.push_back({numberCell(vlan), textCell(ponWord(state), tone)});
}

Exit getWord(Session& session, uint32_t id, uint32_t& word) {
    std::string value;
    const Exit exit = getScalar(session, id, scalarName(id), value);
    word = exit == Exit::done ? wordAt(value, 0) : 0;
    return exit;
}

}  // namespace

Exit readMode(Session& session, uint32_t& mode) {
    return getWord(session, SCALAR_MODE, mode);
}

Exit readMaxGroups(Session& session, uint32_t& groups) {
    return getWord(session, SCALAR_MAX_ISO_GRP_NUM, groups);
}

Exit readPonOff(Session& session, std::vector<uint32_t>& vlans) {
    Request request{OP_VLAN_GET_FIRST, 0, wordBytes(0), {}, 0};
    for (;;) {
        Reply reply;
        const Exit exit = ask(session, request, reply);
        if (exit != Exit::done || reply.status == STATUS_NOT_FOUND) {
            return exit;
        }
        if (reply.status != 0) {
            return refuse("pon: walk of the VLANs", reply.status);
        }
        const bool whole = reply.index.size() == sizeof(uint32_t);
        if (!whole ||
            (request.opcode == OP_VLAN_GET_NEXT && wordAt(reply.index, 0) <= wordAt(request.index, 0))) {
            return brokenProtocol("a walk of the VLANs does not advance");
        }
        vlans.push_back(wordAt(reply.index, 0));
        request.opcode = OP_VLAN_GET_NEXT;
        request.index = reply.index;
    }
}

Exit sendMode(Session& session, uint32_t mode, int32_t& status) {
    return sendScalar(session, SCALAR_MODE, mode, status);
}

Exit sendPon(Session& session, uint32_t vlan, bool on, int32_t& status) {
    const uint32_t state = on ? PON_ISOLATION_ON : PON_ISOLATION_OFF;
    return sendStatus(session, {OP_VLAN_SET, PON_COLUMN, wordBytes(vlan), wordBytes(state), 0}, status);
}

Exit runPonSwitch(Session& session, const Invocation& invocation) {
    std::vector<uint32_t> vlans;
    Exit result = numberArguments("VLAN", invocation.arguments, vlans);
    if (result != Exit::done) {
        return result;
    }
    for (const uint32_t vlan : vlans) {
        int32_t status = 0;
        const Exit exit = sendPon(session, vlan, invocation.verb == "on", status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status != 0) {
            result = refuse(formatText("pon, VLAN %u: %s", vlan, invocation.verb.c_str()), status);
        }
    }
    return result;
}

Exit runPonGet(Session& session, const Invocation& invocation) {
    std::vector<uint32_t> vlans;
    Exit result = numberArguments("VLAN", invocation.arguments, vlans);
    if (result != Exit::done) {
        return result;
    }
    Listing listing = ponListing();
    for (const uint32_t vlan : vlans) {
        int32_t status = 0;
        uint32_t state = 0;
        const Request request{OP_VLAN_GET, PON_COLUMN, wordBytes(vlan), {}, sizeof(uint32_t)};
        const Exit exit = askWord(session, request, status, state);
        if (exit != Exit::done) {
            return exit;
        }
        if (status != 0) {
            result = refuse(formatText("pon, VLAN %u: get", vlan), status);
            continue;
        }
        addPonRow(listing, vlan, state);
    }
    printListing(listing, session.json);
    return result;
}

Exit runPonList(Session& session, const Invocation&) {
    std::vector<uint32_t> vlans;
    const Exit exit = readPonOff(session, vlans);
    if (exit != Exit::done) {
        return exit;
    }
    Listing listing = ponListing();
    for (const uint32_t vlan : vlans) {
        addPonRow(listing, vlan, PON_ISOLATION_OFF);
    }
    printListing(listing, session.json);
    return Exit::done;
}

Exit runModeGet(Session& session, const Invocation&) {
    uint32_t mode = 0;
    const Exit exit = readMode(session, mode);
    if (exit == Exit::done) {
        printValue(session, "mode", numberCell(mode));
    }
    return exit;
}

Exit runModeSet(Session& session, const Invocation& invocation) {
    uint32_t mode = 0;
    const Exit exit = numberArgument("mode", invocation.arguments[0], mode);
    return exit == Exit::done ? setScalar(session, SCALAR_MODE, "mode", mode) : exit;
}

Exit runScalarGet(Session& session, const Invocation& invocation) {
    if (invocation.arguments.empty()) {
        return runScalarList(session, invocation);
    }
    std::vector<uint32_t> ids;
    for (const std::string& text : invocation.arguments) {
        uint32_t id = 0;
        const Exit exit = readScalarId(text, id);
        if (exit != Exit::done) {
            return exit;
        }
        ids.push_back(id);
    }
    if (ids.size() > 1) {
        return listScalars(session, ids);
    }
    std::string value;
    const std::string name = scalarName(ids[0]);
    const Exit exit = getScalar(session, ids[0], name, value);
    if (exit == Exit::done) {
        printValue(session, name.c_str(), scalarCell(ids[0], value));
    }
    return exit;
}

Exit runScalarList(Session& session, const Invocation&) {
    std::vector<uint32_t> ids;
    for (const ScalarName& scalar : SCALARS) {
        ids.push_back(scalar.id);
    }
    return listScalars(session, ids);
}

Exit runDebug(Session& session, const Invocation& invocation) {
    if (!invocation.arguments.empty()) {
        uint32_t mask = 0;
        const Exit exit = numberArgument("mask", invocation.arguments[0], mask);
        return exit == Exit::done ? setScalar(session, SCALAR_DEBUG_MASK, "debug mask", mask) : exit;
    }
    std::string value;
    const Exit exit = getScalar(session, SCALAR_DEBUG_MASK, "debug-mask", value);
    if (exit != Exit::done) {
        return exit;
    }
    const uint32_t mask = wordAt(value, 0);
    std::vector<std::string> names;
    for (const DebugCategory& category : DEBUG_CATEGORIES) {
        if ((mask & category.bit) != 0) {
            names.emplace_back(category.name);
        }
    }
    if (session.json) {
        printLine(jsonObject({{nullptr, "debugMask"}, {nullptr, "categories"}},
                             {numberCell(mask), listCell(names)}));
    } else {
        printLine(formatText("0x%x: %s", mask, names.empty() ? "silent" : joinChoices(names, "and").c_str()));
    }
    return Exit::done;
}

std::vector<uint32_t> vlansOfBitList(std::string_view bytes) {
    std::vector<uint32_t> vlans;
    for (uint32_t vlan = 0; vlan < bytes.size() * 8; ++vlan) {
        if ((static_cast<unsigned char>(bytes[vlan / 8]) & (0x80u >> (vlan % 8))) != 0) {
            vlans.push_back(vlan);
        }
    }
    return vlans;
}
