// Walks of the daemon's tables. A walk believes no reply: a key has the size of the one that was sent, comes
// behind it in the table's order, and is of what was asked for.
#include <fmt/format.h>

#include "common/row_families.h"
#include "common/statuses.h"
#include "lib/interface/connection.h"
#include "wire/framing.h"
#include "wire/operations.h"
#include "wire/records.h"
#include "wire/status.h"

struct portisolate_walk {
    const RowFamily* family;  // null: the VLANs without PON isolation
    unsigned match;
    RowScope scope;
    IndexWords current{};
    uint32_t mask = 0;
    bool begun = false;
    std::string index{};  // of the next request
    std::string error{};
};

namespace {

constexpr size_t PON_WORDS = 1;

const RowFamily* familyOf(int family) {
    return family == PORTISOLATE_GROUP        ? &GROUP_ROWS
           : family == PORTISOLATE_PAIR       ? &PAIR_ROWS
           : family == PORTISOLATE_VLAN_GROUP ? &VLAN_GROUP_ROWS
                                              : nullptr;
}

size_t wordsOf(const portisolate_walk& walk) {
    return walk.family == nullptr ? PON_WORDS : walk.family->words;
}

bool comesAfter(const portisolate_walk& walk, const IndexWords& later, const IndexWords& earlier) {
    if (walk.family == nullptr) return later[0] > earlier[0];
    for (size_t key = 0; key + 1 < walk.family->words; ++key) {
        const size_t word = walk.family->order[key];
        if (later[word] != earlier[word]) return later[word] > earlier[word];
    }
    return false;
}

portisolate_row rowOf(const portisolate_walk& walk, const IndexWords& index) {
    if (walk.family == nullptr) return {.number = 0, .vlan = index[0], .member = 0};
    const RowFamily& family = *walk.family;
    return {.number = index[family.scope],
            .vlan = familyHasVlans(family) ? index[family.vlan] : 0,
            .member = index[family.member]};
}

void setIndex(portisolate_walk& walk) {
    walk.index.clear();
    for (size_t word = 0; word < wordsOf(walk); ++word) appendWord(walk.index, walk.current[word]);
}

int broken(portisolate_walk& walk, const std::string& what) {
    walk.error = what;
    return PORTISOLATE_BROKEN;
}

int take(portisolate_walk& walk, int32_t status, std::string_view index, portisolate_row& row) {
    if (status == STATUS_NOT_FOUND) return PORTISOLATE_END;
    if (status != STATUS_OK) {
        walk.error = describeStatus(status);
        return PORTISOLATE_REFUSED;
    }
    if (index.size() != walk.index.size()) {
        return broken(walk, fmt::format("a key of {} bytes", index.size()));
    }
    IndexWords found{};
    for (size_t word = 0; word < wordsOf(walk); ++word) found[word] = wordAt(index, word);
    if (walk.begun && !comesAfter(walk, found, walk.current)) {
        return broken(walk, walk.family == nullptr ? "a walk of the VLANs does not advance"
                                                   : "a walk of the table does not advance");
    }
    row = rowOf(walk, found);
    const bool other = (walk.match & PORTISOLATE_MATCH_NUMBER) != 0 && row.number != walk.scope.number;
    const bool otherVlan = (walk.match & PORTISOLATE_MATCH_VLAN) != 0 && row.vlan != walk.scope.vlan;
    if (other || otherVlan) return broken(walk, "a row that was not asked for");
    walk.begun = true;
    walk.current = found;
    if (walk.family != nullptr) walk.current[walk.family->words - 1] = walk.mask;
    setIndex(walk);
    return PORTISOLATE_OK;
}

}  // namespace

portisolate_walk* portisolate_walk_new(int family, unsigned match, uint32_t number, uint32_t vlan) {
    return madeBy([&]() -> portisolate_walk* {
        const RowFamily* rows = familyOf(family);
        if (rows == nullptr && family != PORTISOLATE_PON_OFF) return nullptr;
        const unsigned known = rows == nullptr         ? 0u
                               : familyHasVlans(*rows) ? PORTISOLATE_MATCH_NUMBER | PORTISOLATE_MATCH_VLAN
                                                       : PORTISOLATE_MATCH_NUMBER;
        if ((match & ~known) != 0) return nullptr;
        auto* walk = new portisolate_walk{.family = rows, .match = match, .scope = {number, vlan}};
        if (rows != nullptr) {
            if ((match & PORTISOLATE_MATCH_NUMBER) != 0) walk->mask |= rows->scopeMask;
            if ((match & PORTISOLATE_MATCH_VLAN) != 0) walk->mask |= rows->vlanMask;
            walk->current[rows->scope] = number;
            if (familyHasVlans(*rows)) walk->current[rows->vlan] = vlan;
            walk->current[rows->words - 1] = walk->mask;
        }
        setIndex(*walk);
        return walk;
    });
}

void portisolate_walk_free(portisolate_walk* walk) {
    delete walk;
}

uint32_t portisolate_walk_opcode(const portisolate_walk* walk) {
    if (walk == nullptr) return OP_NONE;
    if (walk->family == nullptr) return walk->begun ? OP_VLAN_GET_NEXT : OP_VLAN_GET_FIRST;
    return walk->begun ? walk->family->opNext : walk->family->opFirst;
}

const void* portisolate_walk_index(const portisolate_walk* walk, size_t* size) {
    if (size != nullptr) *size = walk == nullptr ? 0 : walk->index.size();
    return walk == nullptr ? nullptr : walk->index.data();
}

int portisolate_walk_take(portisolate_walk* walk, int32_t status, const void* index, size_t size,
                          struct portisolate_row* row) {
    if (walk == nullptr || row == nullptr || (index == nullptr && size > 0)) return PORTISOLATE_MISUSE;
    return guarded([&] { return take(*walk, status, {static_cast<const char*>(index), size}, *row); });
}

const char* portisolate_walk_error(const portisolate_walk* walk) {
    return walk == nullptr ? "" : walk->error.c_str();
}

int portisolate_walk_next(portisolate_walk* walk, portisolate_connection* connection,
                          struct portisolate_row* row) {
    if (walk == nullptr || connection == nullptr || row == nullptr) return PORTISOLATE_MISUSE;
    return guarded([&] {
        const int carried =
            carryOut(*connection, {.opcode = portisolate_walk_opcode(walk), .index = walk->index});
        if (carried != PORTISOLATE_OK) return carried;
        const Reply& reply = connection->reply;
        const int taken = take(*walk, reply.status, reply.index, *row);
        if (taken == PORTISOLATE_OK || taken == PORTISOLATE_END) return taken;
        return fail(*connection, taken, COMMAND_SOCKET_PATH, walk->error);
    });
}

const char* portisolate_family_name(int family) {
    if (family == PORTISOLATE_PON_OFF) return "pon";
    const RowFamily* rows = familyOf(family);
    return rows == nullptr ? nullptr : rows->object;
}

const char* portisolate_column_name(int family, uint32_t column) {
    if (family == PORTISOLATE_PON_OFF) return column == PON_COLUMN_STATE ? "state" : nullptr;
    const RowFamily* rows = familyOf(family);
    return rows != nullptr && column == rows->column ? "status" : nullptr;
}
