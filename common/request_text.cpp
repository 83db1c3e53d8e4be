#include "common/request_text.h"

#include <fmt/format.h>

#include <optional>

#include "common/bytes.h"
#include "common/row_families.h"
#include "common/scalar_names.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/records.h"

namespace {

const char* actionWord(uint32_t action) {
    switch (action) {
        case ROW_ACTIVATE:
            return "activate";
        case ROW_CREATE:
            return "create";
        case ROW_PROBE:
            return "probe";
        case ROW_DESTROY:
            return "destroy";
        default:
            return "unknown row status";
    }
}

const RowFamily* familyOf(uint32_t opcode) {
    for (const RowFamily* family : {&GROUP_ROWS, &PAIR_ROWS, &VLAN_GROUP_ROWS}) {
        const uint32_t opSync = portIsolateSyncOf(family->opSet);
        for (const uint32_t known : {family->opSet, opSync, family->opGet, family->opFirst, family->opNext}) {
            if (opcode == known) return family;
        }
    }
    return nullptr;
}

// A request taken apart; `index` and `value` are what was sent.
struct Asked {
    OpKind kind = OpKind::none;
    uint32_t opcode = 0;
    uint32_t column = 0;
    std::string_view index{};
    std::string_view value{};
};

std::optional<Asked> takeApart(std::string_view frame) {
    if (frame.size() < COMMAND_WORDS_MIN || wordAt(frame, 2) > frame.size() - COMMAND_WORDS_MIN) return {};
    Asked asked = {.opcode = wordAt(frame, 0), .column = wordAt(frame, 1)};
    asked.index = frame.substr(3 * WORD_SIZE, wordAt(frame, 2));
    asked.value = frame.substr(COMMAND_WORDS_MIN + asked.index.size());
    if (asked.opcode >= OP_COUNT) return {};
    const OpShape& shape = PORT_ISOLATE_OP_SHAPES[asked.opcode];
    asked.kind = shape.kind;
    if (shape.kind == OpKind::none || asked.index.size() != shape.indexLength) return {};
    return asked;
}

RowScope scopeOf(const RowFamily& family, const Asked& asked) {
    return {.number = wordAt(asked.index, family.scope),
            .vlan = familyHasVlans(family) ? wordAt(asked.index, family.vlan) : 0};
}

std::string rowRequestText(const InterfaceNamer& nameOf, const RowFamily& family, const Asked& asked) {
    const RowScope scope = scopeOf(family, asked);
    const std::string row = rowText(nameOf, family, scope, wordAt(asked.index, family.member));
    const bool word = asked.value.size() == WORD_SIZE;
    switch (asked.kind) {
        case OpKind::set:
            return row + ": " + (word ? actionWord(wordAt(asked.value, 0)) : "nothing to set");
        case OpKind::first:
            return std::string(family.object) + ": get first";
        case OpKind::next:
            return row + ": get next";
        default:
            return row + ": get";
    }
}

std::string valueRequestText(const Asked& asked) {
    const bool vlan = !asked.index.empty();
    const std::string object =
        vlan ? fmt::format("pon, VLAN {}", wordAt(asked.index, 0)) : "scalar " + scalarName(asked.column);
    switch (asked.kind) {
        case OpKind::set:
            if (asked.value.size() != WORD_SIZE) {
                return fmt::format("{}: set {} bytes", object, asked.value.size());
            }
            if (!vlan) return fmt::format("{}: set to {}", object, wordAt(asked.value, 0));
            return object + (wordAt(asked.value, 0) == PON_ISOLATION_OFF ? ": off" : ": on");
        case OpKind::first:
            return "pon: get first";
        case OpKind::next:
            return object + ": get next";
        default:
            return object + ": get";
    }
}

const char* operationWord(const Asked& asked) {
    const bool word = asked.value.size() == WORD_SIZE;
    switch (asked.kind) {
        case OpKind::set:
            if (!word || asked.index.empty()) return "set";
            if (familyOf(asked.opcode) != nullptr) return actionWord(wordAt(asked.value, 0));
            return wordAt(asked.value, 0) == PON_ISOLATION_OFF ? "off" : "on";
        case OpKind::first:
            return "get first";
        case OpKind::next:
            return "get next";
        default:
            return "get";
    }
}

}  // namespace

std::string requestText(const InterfaceNamer& nameOf, std::string_view frame) {
    const std::optional<Asked> asked = takeApart(frame);
    if (!asked) {
        return frame.size() < WORD_SIZE ? "unreadable"
                                        : fmt::format("unreadable, opcode {}", wordAt(frame, 0));
    }
    const RowFamily* family = familyOf(asked->opcode);
    return (portIsolateOpIsSync(asked->opcode) ? "from the peer: " : "") +
           (family != nullptr ? rowRequestText(nameOf, *family, *asked) : valueRequestText(*asked));
}

RequestParts requestParts(std::string_view frame) {
    const std::optional<Asked> asked = takeApart(frame);
    if (!asked) return {.operation = "unreadable"};
    RequestParts parts = {.operation = operationWord(*asked),
                          .object = asked->index.empty() ? "scalar" : "pon",
                          .family = familyOf(asked->opcode),
                          .fromPeer = portIsolateOpIsSync(asked->opcode)};
    if (asked->kind == OpKind::set && asked->value.size() == WORD_SIZE) parts.value = wordAt(asked->value, 0);
    if (asked->index.empty()) parts.scalar = asked->column;
    if (parts.family != nullptr) parts.object = parts.family->object;
    // A first look has no key.
    if (asked->kind == OpKind::first) parts.family = nullptr;
    if (parts.family != nullptr) {
        parts.scope = scopeOf(*parts.family, *asked);
        parts.member = wordAt(asked->index, parts.family->member);
    } else if (asked->index.size() == WORD_SIZE && asked->kind != OpKind::first) {
        parts.vlan = wordAt(asked->index, 0);
    }
    return parts;
}

bool requestSets(std::string_view frame) {
    const std::optional<Asked> asked = takeApart(frame);
    if (!asked || asked->kind != OpKind::set) return false;
    const bool word = asked->value.size() == WORD_SIZE;
    return familyOf(asked->opcode) == nullptr || !word || wordAt(asked->value, 0) != ROW_PROBE;
}

std::optional<Withdrawal> withdrawnBy(std::string_view frame) {
    const std::optional<Asked> asked = takeApart(frame);
    if (!asked || asked->kind != OpKind::set || asked->value.size() != WORD_SIZE) return {};
    const uint32_t value = wordAt(asked->value, 0);
    const RowFamily* family = familyOf(asked->opcode);
    if (family != nullptr && value == ROW_DESTROY) {
        return Withdrawal{family, scopeOf(*family, *asked), wordAt(asked->index, family->member)};
    }
    const bool vlan = family == nullptr && !asked->index.empty();
    if (!vlan || value != PON_ISOLATION_ON) return {};
    return Withdrawal{.vlan = wordAt(asked->index, 0)};
}
