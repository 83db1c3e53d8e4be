#include "lib/link/scalars.h"

#include <fmt/format.h>

#include "common/bytes.h"
#include "lib/text/args.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/records.h"
#include "wire/scalars.h"

uint32_t scalarId(const std::string& text) {
    uint32_t id = 0;
    return parseGivenNumber(text, id) ? id : scalarIds()[pickName(scalarNames(), text, "scalar")];
}

std::string readScalar(Session& session, uint32_t id) {
    const bool buffer = portIsolateScalarIsBuffer(id);
    const Reply reply = ask(session, {.opcode = OP_SCALAR_GET,
                                      .column = id,
                                      .capacity = buffer ? COMMAND_VALUE_MAX : uint32_t{WORD_SIZE}});
    if (reply.status != 0) throw refusal("scalar " + scalarName(id) + ": get", reply.status);
    if (!buffer && reply.value.size() != WORD_SIZE) {
        throw brokenProtocol(fmt::format("scalar {} of {} bytes", scalarName(id), reply.value.size()));
    }
    return reply.value;
}

uint32_t readNumber(Session& session, uint32_t id) {
    return wordAt(readScalar(session, id), 0);
}

int32_t sendScalar(Session& session, uint32_t id, uint32_t value) {
    return ask(session, {.opcode = OP_SCALAR_SET, .column = id, .value = wordBytes(value)}).status;
}

WordReply readPon(Session& session, uint32_t vlan) {
    return askWord(session, {.opcode = OP_VLAN_GET, .column = PON_COLUMN_STATE, .index = wordBytes(vlan)});
}

int32_t sendPon(Session& session, uint32_t vlan, bool on) {
    return ask(session, {.opcode = OP_VLAN_SET,
                         .column = PON_COLUMN_STATE,
                         .index = wordBytes(vlan),
                         .value = wordBytes(on ? PON_ISOLATION_ON : PON_ISOLATION_OFF)})
        .status;
}

std::vector<uint32_t> vlansOfBitList(std::string_view bytes) {
    std::vector<uint32_t> vlans;
    for (uint32_t vlan = 0; vlan < bytes.size() * 8; ++vlan) {
        if ((static_cast<unsigned char>(bytes[vlan / 8]) & (0x80u >> (vlan % 8))) != 0) vlans.push_back(vlan);
    }
    return vlans;
}
