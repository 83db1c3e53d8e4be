#include "ctl/commands/row_commands.h"

#include <algorithm>
#include <span>

#include "common/text.h"
#include "ctl/commands/less_held.h"
#include "lib/answers/error_answer.h"
#include "lib/answers/row_answers.h"
#include "lib/link/interfaces.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"
#include "lib/text/output.h"

namespace {

// What one call of addRows has done so far.
struct Addition {
    std::vector<uint32_t> created;
    std::vector<uint32_t> activated;  // rows that were there before
};

// Writes a row's status; a refusal of `step` is printed and ends the command.
void requireRowStatus(Session& session, const RowFamily& family, RowScope scope, uint32_t member,
                      uint32_t value, const char* step) {
    const int32_t status = sendRowStatus(session, family, scope, member, value);
    if (status == 0) return;
    tellRowRefusal(session, family, scope, member, step, status);
    throw CommandEnds{Exit::refused, {}, status};
}

void addRow(Session& session, const RowFamily& family, RowScope scope, uint32_t member, bool activate,
            Addition& addition) {
    const bool exists = rowExists(session, family, scope, member);
    if (!exists) {
        requireRowStatus(session, family, scope, member, ROW_CREATE, "create");
        addition.created.push_back(member);
    }
    if (!activate) return;
    if (exists) {
        const WordReply before = readRowStatus(session, family, scope, member);
        if (before.status == 0 && before.word == ROW_STATE_PROGRAMMED) return;
    }
    requireRowStatus(session, family, scope, member, ROW_ACTIVATE, "activate");
    if (exists) addition.activated.push_back(member);
}

// Prints what a call that did not come through leaves behind.
void tellMembers(Session& session, const RowFamily& family, RowScope scope, const char* what,
                 const std::vector<uint32_t>& members) {
    if (members.empty()) return;
    complain(scopeText(session, family, scope) + ": " + what + ": " + interfaceNames(session, members));
}

constexpr char NOT_TAKEN_BACK[] = "added before that, and not taken back";

// Takes back what a refused addRows has created, last first, and prints what remains. Answers how that went:
// Exit::refused, or why it could not be finished.
Exit undoRows(Session& session, const RowFamily& family, RowScope scope, const Addition& addition) {
    std::vector<uint32_t> undone;
    std::vector<uint32_t> left = addition.created;
    Exit result = Exit::refused;
    try {
        for (; !left.empty(); left.pop_back()) {
            const int32_t status = sendRowStatus(session, family, scope, left.back(), ROW_DESTROY);
            if (status == 0) {
                undone.push_back(left.back());
            } else {
                tellRowRefusal(session, family, scope, left.back(), "taking it back", status);
            }
        }
    } catch (const CommandEnds& end) {
        result = tellEnd(end);
    }
    tellMembers(session, family, scope, "taken back again", undone);
    tellMembers(session, family, scope, NOT_TAKEN_BACK, left);
    tellMembers(session, family, scope, "was there before and stays active", addition.activated);
    return result;
}

const RowFamily& familyOf(const Invocation& invocation) {
    for (const RowFamily* family : {&GROUP_ROWS, &PAIR_ROWS}) {
        if (invocation.object == family->object) return *family;
    }
    return VLAN_GROUP_ROWS;
}

// "SCOPE [MEMBER...] [--vlan VLAN]"
struct GivenRows {
    const RowFamily& family;
    RowScope scope;
    std::vector<uint32_t> members;
};

GivenRows readRows(Session& session, const Invocation& invocation) {
    GivenRows given{familyOf(invocation), {}, {}};
    given.scope.vlan = vlanOption(invocation.options);
    if (invocation.arguments.empty()) return given;
    const std::string& first = invocation.arguments.front();
    given.scope.number =
        &given.family == &PAIR_ROWS ? resolveInterface(session, first) : numberArgument("group", first);
    given.members = resolveInterfaces(session, std::span(invocation.arguments).subspan(1));
    return given;
}

// The daemon answers a probe of any pair with 0, so what was found is looked up.
bool tellProbed(Session& session, const GivenRows& given, uint32_t member) {
    const std::string row = rowText(session, given.family, given.scope, member);
    const bool there = rowExists(session, given.family, given.scope, member);
    if (there) printLine(safeText(row) + ": is there");
    if (!there) complain(row + ": is not there");
    return there;
}

// Writes one status to each of the given rows, going on after a refusal.
Exit sendEach(Session& session, const GivenRows& given, uint32_t value, const char* step) {
    Exit result = Exit::done;
    for (const uint32_t member : given.members) {
        const int32_t status = sendRowStatus(session, given.family, given.scope, member, value);
        if (status != 0) {
            tellRowRefusal(session, given.family, given.scope, member, step, status);
            result = Exit::refused;
        } else if (value == ROW_PROBE) {
            if (!tellProbed(session, given, member)) result = Exit::refused;
        }
    }
    return result;
}

// `add` and `create`.
Exit runAdd(Session& session, const Invocation& invocation) {
    const GivenRows given = readRows(session, invocation);
    std::vector<uint32_t> named = given.members;
    if (&given.family == &PAIR_ROWS) named.push_back(given.scope.number);
    const std::string wrong = unlistedInterface(session, named);
    if (!wrong.empty()) throw misuse(wrong);
    const bool activate = invocation.verb == "add";
    const Exit result = addRows(session, given.family, given.scope, given.members, activate);
    if (activate && result == Exit::done) tellLessHeld(session, given.family, given.scope, given.members);
    return result;
}

Exit runActivate(Session& session, const Invocation& invocation) {
    const GivenRows given = readRows(session, invocation);
    const Exit result = sendEach(session, given, ROW_ACTIVATE, "activate");
    tellLessHeld(session, given.family, given.scope, given.members);
    return result;
}

Exit runProbe(Session& session, const Invocation& invocation) {
    return sendEach(session, readRows(session, invocation), ROW_PROBE, "probe");
}

Exit runDelete(Session& session, const Invocation& invocation) {
    GivenRows given = readRows(session, invocation);
    if (invocation.arguments.size() == 1) {
        for (const Row& row : walkRows(session, given.family, &given.scope)) {
            given.members.push_back(row.member);
        }
        if (given.members.empty()) {
            complain(scopeText(session, given.family, given.scope) + ": is empty; nothing to delete");
        }
    }
    Exit result = Exit::done;
    for (const uint32_t member : given.members) {
        if (!rowExists(session, given.family, given.scope, member)) {
            complain(rowText(session, given.family, given.scope, member) +
                     ": is not there; nothing to delete");
            continue;
        }
        const int32_t status = sendRowStatus(session, given.family, given.scope, member, ROW_DESTROY);
        if (status != 0) {
            tellRowRefusal(session, given.family, given.scope, member, "delete", status);
            result = Exit::refused;
        }
    }
    return result;
}

Exit runList(Session& session, const Invocation& invocation) {
    const GivenRows given = readRows(session, invocation);
    std::vector<Row> rows =
        collectRows(session, given.family, invocation.arguments.empty() ? nullptr : &given.scope);
    const uint32_t vlan = given.scope.vlan;
    std::erase_if(rows, [=](const Row& row) { return vlan != 0 && row.scope.vlan != vlan; });
    printListing(rowListing(session, given.family, rows), session.json);
    return Exit::done;
}

constexpr Command ROW_COMMANDS[] = {
    {.object = "group",
     .verb = "add",
     .signature = "GROUP INTERFACE...",
     .help = "isolate interfaces from the group's members",
     .example = "group add 5 ge1/1 ge1/2 lag1",
     .run = runAdd},
    {.object = "group",
     .verb = "create",
     .signature = "GROUP INTERFACE...",
     .help = "enter members without isolating them yet",
     .example = "group create 5 ge1/1-4",
     .run = runAdd},
    {.object = "group",
     .verb = "activate",
     .signature = "GROUP INTERFACE...",
     .help = "isolate members that were created",
     .example = "group activate 5 ge1/1-4",
     .run = runActivate},
    {.object = "group",
     .verb = "probe",
     .signature = "GROUP INTERFACE...",
     .help = "ask whether interfaces are members",
     .example = "group probe 5 ge1/1",
     .run = runProbe},
    {.object = "group",
     .verb = "del",
     .signature = "GROUP [INTERFACE...]",
     .help = "release members, all of them by default",
     .example = "group del 5 ge1/1",
     .run = runDelete},
    {.object = "group",
     .verb = "list",
     .signature = "[GROUP]",
     .help = "show the members of one group or of all",
     .example = "group list 5",
     .run = runList,
     .json = "an array of {group, interface, number, status}; status is active or created"},
    {.object = "pair",
     .verb = "add",
     .signature = "SOURCE TARGET...",
     .help = "keep traffic of the source from the targets",
     .example = "pair add ge1/1 ge1/2",
     .run = runAdd},
    {.object = "pair",
     .verb = "create",
     .signature = "SOURCE TARGET...",
     .help = "enter pairs without isolating them yet",
     .example = "pair create ge1/1 ge1/2",
     .run = runAdd},
    {.object = "pair",
     .verb = "activate",
     .signature = "SOURCE TARGET...",
     .help = "isolate pairs that were created",
     .example = "pair activate ge1/1 ge1/2",
     .run = runActivate},
    {.object = "pair",
     .verb = "probe",
     .signature = "SOURCE TARGET...",
     .help = "ask whether pairs are there",
     .example = "pair probe ge1/1 ge1/2",
     .run = runProbe},
    {.object = "pair",
     .verb = "del",
     .signature = "SOURCE [TARGET...]",
     .help = "release pairs, all of the source by default",
     .example = "pair del ge1/1 ge1/2",
     .run = runDelete},
    {.object = "pair",
     .verb = "list",
     .signature = "[SOURCE]",
     .help = "show the pairs of one source or of all",
     .example = "pair list",
     .run = runList,
     .json = "an array of {source, sourceNumber, target, targetNumber, status}; status is active or created"},
    {.object = "vlan-group",
     .verb = "add",
     .signature = "GROUP INTERFACE... --vlan VLAN",
     .help = "isolate interfaces from the group's members within a VLAN",
     .example = "vlan-group add 7 ge1/1 ge1/2 --vlan 10",
     .run = runAdd},
    {.object = "vlan-group",
     .verb = "create",
     .signature = "GROUP INTERFACE... --vlan VLAN",
     .help = "enter members without isolating them yet",
     .example = "vlan-group create 7 ge1/1-4 --vlan 10",
     .run = runAdd},
    {.object = "vlan-group",
     .verb = "activate",
     .signature = "GROUP INTERFACE... --vlan VLAN",
     .help = "isolate members that were created",
     .example = "vlan-group activate 7 ge1/1 --vlan 10",
     .run = runActivate},
    {.object = "vlan-group",
     .verb = "probe",
     .signature = "GROUP INTERFACE... --vlan VLAN",
     .help = "ask whether interfaces are members",
     .example = "vlan-group probe 7 ge1/1 --vlan 10",
     .run = runProbe},
    {.object = "vlan-group",
     .verb = "del",
     .signature = "GROUP [INTERFACE...] --vlan VLAN",
     .help = "release members, all of them by default",
     .example = "vlan-group del 7 --vlan 10",
     .run = runDelete},
    {.object = "vlan-group",
     .verb = "list",
     .signature = "[GROUP] [--vlan VLAN]",
     .help = "show the members of one VLAN group or of all",
     .example = "vlan-group list --vlan 10",
     .run = runList,
     .json = "an array of {group, vlan, interface, number, status}; status is active or created"},
};

}  // namespace

Exit addRows(Session& session, const RowFamily& family, RowScope scope, const std::vector<uint32_t>& members,
             bool activate) {
    Addition addition;
    try {
        for (const uint32_t member : members) addRow(session, family, scope, member, activate, addition);
    } catch (const CommandEnds& end) {
        if (session.json && end.status) printLine(jsonText(errorAnswer(end)));
        if (tellEnd(end) == Exit::refused) return undoRows(session, family, scope, addition);
        tellMembers(session, family, scope, NOT_TAKEN_BACK, addition.created);
        return end.exit;
    }
    return Exit::done;
}

Commands rowCommands() {
    return ROW_COMMANDS;
}
