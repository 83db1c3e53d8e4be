#include "lib/link/rows.h"

#include <fmt/format.h>

#include <memory>

#include "common/bytes.h"
#include "lib/interface/portisolate.h"
#include "lib/link/interfaces.h"
#include "lib/text/output.h"
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

using Walk = std::unique_ptr<portisolate_walk, void (*)(portisolate_walk*)>;

Walk walkOf(const RowFamily& family, const RowScope* scope) {
    const int table = &family == &GROUP_ROWS  ? PORTISOLATE_GROUP
                      : &family == &PAIR_ROWS ? PORTISOLATE_PAIR
                                              : PORTISOLATE_VLAN_GROUP;
    unsigned match = PORTISOLATE_MATCH_ALL;
    if (scope != nullptr) match |= PORTISOLATE_MATCH_NUMBER;
    if (scope != nullptr && scope->vlan != 0) match |= PORTISOLATE_MATCH_VLAN;
    const RowScope wanted = scope != nullptr ? *scope : RowScope{};
    return {portisolate_walk_new(table, match, wanted.number, wanted.vlan), portisolate_walk_free};
}

// False at the end of the walk; `asked` names it in a refusal.
bool nextRow(Session& session, portisolate_walk* walk, const std::string& asked, portisolate_row& row) {
    size_t size = 0;
    const void* key = portisolate_walk_index(walk, &size);
    const Reply reply = ask(session, {.opcode = portisolate_walk_opcode(walk),
                                      .index = std::string(static_cast<const char*>(key), size)});
    const int result =
        portisolate_walk_take(walk, reply.status, reply.index.data(), reply.index.size(), &row);
    if (result == PORTISOLATE_REFUSED) throw refusal(asked, reply.status);
    if (result != PORTISOLATE_OK && result != PORTISOLATE_END) {
        throw brokenProtocol(portisolate_walk_error(walk));
    }
    return result == PORTISOLATE_OK;
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
    const Walk walk = walkOf(family, scope);
    std::vector<Row> rows;
    for (portisolate_row row{};
         nextRow(session, walk.get(), std::string(family.object) + ": walk of the table", row);) {
        rows.push_back({{row.number, row.vlan}, row.member, 0});
    }
    return rows;
}

std::vector<uint32_t> readPonOff(Session& session) {
    const Walk walk = {portisolate_walk_new(PORTISOLATE_PON_OFF, PORTISOLATE_MATCH_ALL, 0, 0),
                       portisolate_walk_free};
    std::vector<uint32_t> vlans;
    for (portisolate_row row{}; nextRow(session, walk.get(), "pon: walk of the VLANs", row);) {
        vlans.push_back(row.vlan);
    }
    return vlans;
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
