#include "client/link/rows.h"

#include <fmt/format.h>

#include "client/link/interfaces.h"
#include "client/text/output.h"
#include "common/bytes.h"
#include "wire/operations.h"
#include "wire/status.h"

namespace {

IndexWords indexOf(const RowFamily& family, RowScope scope, uint32_t member, uint32_t mask) {
    IndexWords index{};
    index[family.member] = member;
    index[family.scope] = scope.number;
    if (familyHasVlans(family)) index[family.vlan] = scope.vlan;
    index[family.words - 1] = mask;
    return index;
}

Row rowOf(const RowFamily& family, const IndexWords& index) {
    const uint32_t vlan = familyHasVlans(family) ? index[family.vlan] : 0;
    return {{index[family.scope], vlan}, index[family.member], 0};
}

std::string indexBytes(const RowFamily& family, const IndexWords& index) {
    std::string bytes;
    for (size_t word = 0; word < family.words; ++word) appendWord(bytes, index[word]);
    return bytes;
}

// What get first and get next find: a row's index record, when the status is 0.
struct FoundIndex {
    int32_t status = 0;
    IndexWords index{};
};

FoundIndex askIndex(Session& session, const RowFamily& family, uint32_t opcode, const IndexWords& current) {
    const Request request = {.opcode = opcode, .index = indexBytes(family, current)};
    const Reply reply = ask(session, request);
    FoundIndex found{.status = reply.status};
    if (found.status != 0) return found;
    if (reply.index.size() != request.index.size()) {
        throw brokenProtocol(fmt::format("a key of {} bytes", reply.index.size()));
    }
    for (size_t word = 0; word < family.words; ++word) found.index[word] = wordAt(reply.index, word);
    return found;
}

bool comesAfter(const RowFamily& family, const IndexWords& later, const IndexWords& earlier) {
    for (size_t key = 0; key + 1 < family.words; ++key) {
        const size_t word = family.order[key];
        if (later[word] != earlier[word]) return later[word] > earlier[word];
    }
    return false;
}

bool isWithin(const RowScope* scope, const Row& row) {
    return scope == nullptr ||
           (row.scope.number == scope->number && (scope->vlan == 0 || row.scope.vlan == scope->vlan));
}

}  // namespace

std::string scopeText(Session& session, const RowFamily& family, RowScope scope) {
    return scopeText(boardNamer(session), family, scope);
}

std::string rowText(Session& session, const RowFamily& family, RowScope scope, uint32_t member) {
    return rowText(boardNamer(session), family, scope, member);
}

int32_t sendRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                      uint32_t value) {
    return ask(session, {.opcode = family.opSet,
                         .column = family.column,
                         .index = indexBytes(family, indexOf(family, scope, member, 0)),
                         .value = wordBytes(value)})
        .status;
}

void tellRowRefusal(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                    const char* step, int32_t status) {
    tellEnd(refusal(rowText(session, family, scope, member) + ": " + step, status));
    if (status == STATUS_NOT_SUPPORTED && std::string_view(step) == "create") complain(family.createRule);
}

WordReply readRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member) {
    return askWord(session, {.opcode = family.opGet,
                             .column = family.column,
                             .index = indexBytes(family, indexOf(family, scope, member, 0))});
}

bool rowExists(Session& session, const RowFamily& family, RowScope scope, uint32_t member) {
    // Get would write a text of the daemon about a missing row; get first under a full mask does not.
    const uint32_t mask = family.memberMask | family.scopeMask | family.vlanMask;
    const FoundIndex found = askIndex(session, family, family.opFirst, indexOf(family, scope, member, mask));
    if (found.status != 0 && found.status != STATUS_NOT_FOUND) {
        throw refusal(rowText(session, family, scope, member) + ": look-up", found.status);
    }
    return found.status == 0;
}

std::vector<Row> walkRows(Session& session, const RowFamily& family, const RowScope* scope) {
    const uint32_t vlanMask = scope != nullptr && scope->vlan != 0 ? family.vlanMask : 0;
    const uint32_t mask = scope != nullptr ? family.scopeMask | vlanMask : 0;
    IndexWords current = indexOf(family, scope != nullptr ? *scope : RowScope{}, 0, mask);
    std::vector<Row> rows;
    for (uint32_t opcode = family.opFirst;; opcode = family.opNext) {
        const FoundIndex found = askIndex(session, family, opcode, current);
        if (found.status == STATUS_NOT_FOUND) return rows;
        if (found.status != 0) {
            throw refusal(std::string(family.object) + ": walk of the table", found.status);
        }
        if (opcode == family.opNext && !comesAfter(family, found.index, current)) {
            throw brokenProtocol("a walk of the table does not advance");
        }
        rows.push_back(rowOf(family, found.index));
        if (!isWithin(scope, rows.back())) throw brokenProtocol("a row that was not asked for");
        current = found.index;
        current[family.words - 1] = mask;
    }
}

std::vector<Row> collectRows(Session& session, const RowFamily& family, const RowScope* scope) {
    std::vector<Row> present;
    for (Row& row : walkRows(session, family, scope)) {
        const WordReply reply = readRowStatus(session, family, row.scope, row.member);
        if (reply.status == 0) {
            row.status = reply.word;
            present.push_back(row);
        } else if (reply.status != STATUS_NOT_FOUND) {
            throw refusal(rowText(session, family, row.scope, row.member) + ": get", reply.status);
        }
    }
    return present;
}
