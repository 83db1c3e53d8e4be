#include "ctl/client/rows.h"

#include <algorithm>
#include <span>

#include "ctl/client/interfaces.h"
#include "ctl/client/statuses.h"
#include "ctl/text/output.h"
#include "wire/status.h"

constexpr size_t NO_WORD = INDEX_WORDS_MAX;

const RowFamily GROUP_ROWS = {
    "group",
    OP_GROUP_SET,
    OP_GROUP_GET,
    OP_GROUP_GET_FIRST,
    OP_GROUP_GET_NEXT,
    GROUP_COLUMN_ROW_STATUS,
    3,
    0,
    1,
    NO_WORD,
    {1, 0, 0},
    MATCH_IF_UNIT,
    MATCH_GROUP,
    0,
    "group numbers run from 1 to scalar max-groups, and a member port of a trunk cannot join by itself"};

const RowFamily PAIR_ROWS = {"pair",
                             OP_PAIR_SET,
                             OP_PAIR_GET,
                             OP_PAIR_GET_FIRST,
                             OP_PAIR_GET_NEXT,
                             PAIR_COLUMN_ROW_STATUS,
                             3,
                             1,
                             0,
                             NO_WORD,
                             {0, 1, 0},
                             MATCH_DST,
                             MATCH_SRC,
                             0,
                             "source and target must differ, and a member port of a trunk cannot be either"};

const RowFamily VLAN_GROUP_ROWS = {
    "vlan-group",
    OP_VLAN_GROUP_SET,
    OP_VLAN_GROUP_GET,
    OP_VLAN_GROUP_GET_FIRST,
    OP_VLAN_GROUP_GET_NEXT,
    GROUP_COLUMN_ROW_STATUS,
    4,
    0,
    1,
    2,
    {1, 2, 0},
    MATCH_IF_UNIT,
    MATCH_GROUP,
    MATCH_VLAN,
    "group numbers run from 1 to scalar max-groups, the VLAN is not 0, and a member port of a trunk cannot "
    "join by itself"};

namespace {

IndexWords indexOf(const RowFamily& family, RowScope scope, uint32_t member, uint32_t mask) {
    IndexWords index{};
    index[family.member] = member;
    index[family.scope] = scope.number;
    if (family.vlan != NO_WORD) {
        index[family.vlan] = scope.vlan;
    }
    index[family.words - 1] = mask;
    return index;
}

Row rowOf(const RowFamily& family, const IndexWords& index) {
    const uint32_t vlan = family.vlan != NO_WORD ? index[family.vlan] : 0;
    return {{index[family.scope], vlan}, index[family.member], 0};
}

std::string indexBytes(const RowFamily& family, const IndexWords& index) {
    std::string bytes;
    for (size_t word = 0; word < family.words; ++word) {
        appendWord(bytes, index[word]);
    }
    return bytes;
}

std::string scopeText(Session& session, const RowFamily& family, RowScope scope) {
    if (&family == &PAIR_ROWS) {
        return "pair " + interfaceName(session, scope.number);
    }
    std::string text = formatText("%s %u", family.object, scope.number);
    if (scope.vlan != 0) {
        text += formatText(" in VLAN %u", scope.vlan);
    }
    return text;
}

}  // namespace

std::string rowText(Session& session, const RowFamily& family, RowScope scope, uint32_t member) {
    const char* between = &family == &PAIR_ROWS ? " to " : ", ";
    return scopeText(session, family, scope) + between + interfaceName(session, member);
}

Exit sendRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member, uint32_t value,
                   int32_t& status) {
    Request request{
        family.opSet, family.column, indexBytes(family, indexOf(family, scope, member, 0)), {}, 0};
    appendWord(request.value, value);
    Reply reply;
    const Exit exit = ask(session, request, reply);
    status = reply.status;
    return exit;
}

Exit refuseRow(Session& session, const RowFamily& family, RowScope scope, uint32_t member, const char* step,
               int32_t status) {
    const std::string asked = rowText(session, family, scope, member) + ": " + step;
    refuse(asked, status);
    if (status == STATUS_NOT_SUPPORTED && std::string_view(step) == "create") {
        complain(family.createRule);
    }
    return Exit::refused;
}

namespace {

// STATUS_NOT_FOUND in `status` for a row that is not there.
Exit readRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                   int32_t& status, uint32_t& value) {
    const Request request{family.opGet,
                          family.column,
                          indexBytes(family, indexOf(family, scope, member, 0)),
                          {},
                          sizeof(uint32_t)};
    return askWord(session, request, status, value);
}

// Answers a row's index record for get first and get next.
Exit askRow(Session& session, const RowFamily& family, uint32_t opcode, const IndexWords& current,
            int32_t& status, IndexWords& found) {
    const Request request{opcode, 0, indexBytes(family, current), {}, 0};
    Reply reply;
    const Exit exit = ask(session, request, reply);
    status = reply.status;
    if (exit != Exit::done || status != 0) {
        return exit;
    }
    if (reply.index.size() != request.index.size()) {
        return brokenProtocol(formatText("a key of %zu bytes", reply.index.size()));
    }
    for (size_t word = 0; word < family.words; ++word) {
        found[word] = wordAt(reply.index, word);
    }
    return Exit::done;
}

// Looked for by get first under a full mask: unlike get, a missing row is no error worth a text of the
// daemon.
Exit rowExists(Session& session, const RowFamily& family, RowScope scope, uint32_t member, bool& exists) {
    const uint32_t mask = family.memberMask | family.scopeMask | family.vlanMask;
    int32_t status = 0;
    IndexWords found{};
    const Exit exit =
        askRow(session, family, family.opFirst, indexOf(family, scope, member, mask), status, found);
    if (exit != Exit::done) {
        return exit;
    }
    exists = status == 0;
    if (status != 0 && status != STATUS_NOT_FOUND) {
        return refuse(rowText(session, family, scope, member) + ": look-up", status);
    }
    return Exit::done;
}

bool comesAfter(const RowFamily& family, const IndexWords& later, const IndexWords& earlier) {
    for (size_t key = 0; key + 1 < family.words; ++key) {
        const size_t word = family.order[key];
        if (later[word] != earlier[word]) {
            return later[word] > earlier[word];
        }
    }
    return false;
}

bool withinScope(const RowFamily& family, const IndexWords& index, const RowScope* scope) {
    const Row row = rowOf(family, index);
    return scope == nullptr ||
           (row.scope.number == scope->number && (scope->vlan == 0 || row.scope.vlan == scope->vlan));
}

struct Addition {
    std::vector<uint32_t> created;
    std::vector<uint32_t> activated;  // rows that were there before
};

// One member of addRows.
Exit addRow(Session& session, const RowFamily& family, RowScope scope, uint32_t member, bool activate,
            Addition& addition) {
    bool exists = false;
    int32_t status = 0;
    Exit exit = rowExists(session, family, scope, member, exists);
    if (exit != Exit::done) {
        return exit;
    }
    if (!exists) {
        exit = sendRowStatus(session, family, scope, member, ROW_CREATE, status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status != 0) {
            return refuseRow(session, family, scope, member, "create", status);
        }
        addition.created.push_back(member);
    }
    if (!activate) {
        return Exit::done;
    }
    uint32_t before = STATUS_CREATED;
    if (exists) {
        exit = readRowStatus(session, family, scope, member, status, before);
        if (exit != Exit::done || (status == 0 && before == STATUS_PROGRAMMED)) {
            return exit;
        }
    }
    exit = sendRowStatus(session, family, scope, member, ROW_ACTIVATE, status);
    if (exit != Exit::done) {
        return exit;
    }
    if (status != 0) {
        return refuseRow(session, family, scope, member, "activate", status);
    }
    if (exists) {
        addition.activated.push_back(member);
    }
    return Exit::done;
}

// Tells what a call that did not come through leaves behind.
void tellMembers(Session& session, const RowFamily& family, RowScope scope, const char* what,
                 const std::vector<uint32_t>& members) {
    if (!members.empty()) {
        complain(scopeText(session, family, scope) + ": " + what + ": " + interfaceNames(session, members));
    }
}

// Takes back what a refused addRows has created, last first, and says what remains.
Exit undoRows(Session& session, const RowFamily& family, RowScope scope, const Addition& addition) {
    std::vector<uint32_t> undone;
    std::vector<uint32_t> left = addition.created;
    Exit result = Exit::refused;
    while (!left.empty()) {
        int32_t status = 0;
        const Exit exit = sendRowStatus(session, family, scope, left.back(), ROW_DESTROY, status);
        if (exit != Exit::done) {
            result = exit;
            break;
        }
        if (status != 0) {
            refuseRow(session, family, scope, left.back(), "taking it back", status);
        } else {
            undone.push_back(left.back());
        }
        left.pop_back();
    }
    tellMembers(session, family, scope, "taken back again", undone);
    tellMembers(session, family, scope, "added before that, and not taken back", left);
    tellMembers(session, family, scope, "was there before and stays active", addition.activated);
    return result;
}

const RowFamily& familyOf(const Invocation& invocation) {
    for (const RowFamily* family : {&GROUP_ROWS, &PAIR_ROWS}) {
        if (invocation.object == family->object) {
            return *family;
        }
    }
    return VLAN_GROUP_ROWS;
}

// Reads "SCOPE [MEMBER...] [--vlan VLAN]".
Exit readRows(Session& session, const Invocation& invocation, RowScope& scope,
              std::vector<uint32_t>& members) {
    const RowFamily& family = familyOf(invocation);
    if (const std::string* vlan = optionValue(invocation.options, "--vlan")) {
        const Exit exit = numberArgument("VLAN", *vlan, scope.vlan);
        if (exit != Exit::done) {
            return exit;
        }
    }
    if (invocation.arguments.empty()) {
        return Exit::done;
    }
    const std::string& first = invocation.arguments.front();
    const Exit exit = &family == &PAIR_ROWS ? resolveInterface(session, first, scope.number)
                                            : numberArgument("group", first, scope.number);
    if (exit != Exit::done) {
        return exit;
    }
    return resolveInterfaces(session, std::span(invocation.arguments).subspan(1), members);
}

Exit walkRows(Session& session, const RowFamily& family, const RowScope* scope, std::vector<Row>& rows) {
    const uint32_t vlanMask = scope != nullptr && scope->vlan != 0 ? family.vlanMask : 0;
    const uint32_t mask = scope != nullptr ? family.scopeMask | vlanMask : 0;
    IndexWords current = indexOf(family, scope != nullptr ? *scope : RowScope{}, 0, mask);
    for (uint32_t opcode = family.opFirst;; opcode = family.opNext) {
        IndexWords found{};
        int32_t status = 0;
        const Exit exit = askRow(session, family, opcode, current, status, found);
        if (exit != Exit::done) {
            return exit;
        }
        if (status == STATUS_NOT_FOUND) {
            return Exit::done;
        }
        if (status != 0) {
            return refuse(std::string(family.object) + ": walk of the table", status);
        }
        if (opcode == family.opNext && !comesAfter(family, found, current)) {
            return brokenProtocol("a walk of the table does not advance");
        }
        if (!withinScope(family, found, scope)) {
            return brokenProtocol("a row that was not asked for");
        }
        current = found;
        current[family.words - 1] = mask;
        rows.push_back(rowOf(family, found));
    }
}

// Fills in the status of each row and drops the rows that are gone by now.
Exit readStatuses(Session& session, const RowFamily& family, std::vector<Row>& rows) {
    std::vector<Row> present;
    for (Row& row : rows) {
        int32_t status = 0;
        const Exit exit = readRowStatus(session, family, row.scope, row.member, status, row.status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status == 0) {
            present.push_back(row);
        } else if (status != STATUS_NOT_FOUND) {
            return refuse(rowText(session, family, row.scope, row.member) + ": get", status);
        }
    }
    rows.swap(present);
    return Exit::done;
}

using RowsAction = Exit (*)(Session&, const RowFamily&, RowScope, const std::vector<uint32_t>&);

Exit withRows(Session& session, const Invocation& invocation, RowsAction action) {
    RowScope scope;
    std::vector<uint32_t> members;
    const Exit exit = readRows(session, invocation, scope, members);
    return exit == Exit::done ? action(session, familyOf(invocation), scope, members) : exit;
}

Exit createAndActivate(Session& session, const RowFamily& family, RowScope scope,
                       const std::vector<uint32_t>& members) {
    return addRows(session, family, scope, members, true);
}

Exit createOnly(Session& session, const RowFamily& family, RowScope scope,
                const std::vector<uint32_t>& members) {
    return addRows(session, family, scope, members, false);
}

// Every row of the scope; no members are given.
Exit deleteScope(Session& session, const RowFamily& family, RowScope scope, const std::vector<uint32_t>&) {
    std::vector<Row> rows;
    const Exit exit = collectRows(session, family, &scope, false, rows);
    if (exit != Exit::done) {
        return exit;
    }
    if (rows.empty()) {
        complain(scopeText(session, family, scope) + ": is empty; nothing to delete");
    }
    std::vector<uint32_t> members;
    for (const Row& row : rows) {
        members.push_back(row.member);
    }
    return deleteRows(session, family, scope, members);
}

const char* statusWord(uint32_t status) {
    return status == STATUS_PROGRAMMED ? "active" : status == STATUS_CREATED ? "created" : "unknown";
}

Listing listingOf(Session& session, const RowFamily& family, const std::vector<Row>& rows) {
    const bool pairs = &family == &PAIR_ROWS;
    Listing listing;
    listing.columns = pairs ? std::vector<ListingColumn>{{"SOURCE", "source"}, {nullptr, "sourceNumber"}}
                            : std::vector<ListingColumn>{{"GROUP", "group"}};
    if (family.vlan != NO_WORD) {
        listing.columns.push_back({"VLAN", "vlan"});
    }
    listing.columns.push_back(pairs ? ListingColumn{"TARGET", "target"}
                                    : ListingColumn{"INTERFACE", "interface"});
    listing.columns.push_back({nullptr, pairs ? "targetNumber" : "number"});
    listing.columns.push_back({"STATUS", "status"});
    for (const Row& row : rows) {
        std::vector<Cell> cells;
        if (pairs) {
            cells.push_back(textCell(interfaceName(session, row.scope.number)));
        }
        cells.push_back(numberCell(row.scope.number));
        if (family.vlan != NO_WORD) {
            cells.push_back(numberCell(row.scope.vlan));
        }
        cells.push_back(textCell(interfaceName(session, row.member)));
        cells.push_back(numberCell(row.member));
        const Tone tone = row.status == STATUS_PROGRAMMED ? Tone::good : Tone::warning;
        cells.push_back(textCell(statusWord(row.status), tone));
        listing.rows.push_back(cells);
    }
    return listing;
}

}  // namespace

Exit addRows(Session& session, const RowFamily& family, RowScope scope, const std::vector<uint32_t>& members,
             bool activate) {
    Addition addition;
    for (const uint32_t member : members) {
        const Exit exit = addRow(session, family, scope, member, activate, addition);
        if (exit == Exit::refused) {
            return undoRows(session, family, scope, addition);
        }
        if (exit != Exit::done) {
            tellMembers(session, family, scope, "added before that, and not taken back", addition.created);
            return exit;
        }
    }
    return Exit::done;
}

Exit activateRows(Session& session, const RowFamily& family, RowScope scope,
                  const std::vector<uint32_t>& members) {
    Exit result = Exit::done;
    for (const uint32_t member : members) {
        int32_t status = 0;
        const Exit exit = sendRowStatus(session, family, scope, member, ROW_ACTIVATE, status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status != 0) {
            result = refuseRow(session, family, scope, member, "activate", status);
        }
    }
    return result;
}

Exit probeRows(Session& session, const RowFamily& family, RowScope scope,
               const std::vector<uint32_t>& members) {
    Exit result = Exit::done;
    for (const uint32_t member : members) {
        int32_t status = 0;
        const Exit exit = sendRowStatus(session, family, scope, member, ROW_PROBE, status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status != 0) {
            result = refuseRow(session, family, scope, member, "probe", status);
        } else {
            printLine(safeText(rowText(session, family, scope, member)) + ": is there");
        }
    }
    return result;
}

Exit deleteRows(Session& session, const RowFamily& family, RowScope scope,
                const std::vector<uint32_t>& members) {
    Exit result = Exit::done;
    for (const uint32_t member : members) {
        bool exists = false;
        Exit exit = rowExists(session, family, scope, member, exists);
        if (exit != Exit::done) {
            return exit;
        }
        if (!exists) {
            complain(rowText(session, family, scope, member) + ": is not there; nothing to delete");
            continue;
        }
        int32_t status = 0;
        exit = sendRowStatus(session, family, scope, member, ROW_DESTROY, status);
        if (exit != Exit::done) {
            return exit;
        }
        if (status != 0) {
            result = refuseRow(session, family, scope, member, "delete", status);
        }
    }
    return result;
}

Exit collectRows(Session& session, const RowFamily& family, const RowScope* scope, bool statuses,
                 std::vector<Row>& rows) {
    const Exit exit = walkRows(session, family, scope, rows);
    return exit == Exit::done && statuses ? readStatuses(session, family, rows) : exit;
}

Exit runRowsAdd(Session& session, const Invocation& invocation) {
    return withRows(session, invocation, createAndActivate);
}

Exit runRowsCreate(Session& session, const Invocation& invocation) {
    return withRows(session, invocation, createOnly);
}

Exit runRowsActivate(Session& session, const Invocation& invocation) {
    return withRows(session, invocation, activateRows);
}

Exit runRowsProbe(Session& session, const Invocation& invocation) {
    return withRows(session, invocation, probeRows);
}

Exit runRowsDelete(Session& session, const Invocation& invocation) {
    return withRows(session, invocation, invocation.arguments.size() > 1 ? deleteRows : deleteScope);
}

Exit runRowsList(Session& session, const Invocation& invocation) {
    const RowFamily& family = familyOf(invocation);
    RowScope scope;
    std::vector<uint32_t> members;
    Exit exit = readRows(session, invocation, scope, members);
    std::vector<Row> rows;
    if (exit == Exit::done) {
        exit = collectRows(session, family, invocation.arguments.empty() ? nullptr : &scope, true, rows);
    }
    if (exit == Exit::done) {
        std::erase_if(rows, [&](const Row& row) { return scope.vlan != 0 && row.scope.vlan != scope.vlan; });
        printListing(listingOf(session, family, rows), session.json);
    }
    return exit;
}
