#include "host/board/membership.h"

#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <string>

#include "host/board/this_board.h"
#include "host/services/logging.h"
#include "host/sockets/command_server.h"
#include "host/sockets/route_bus.h"
#include "wire/operations.h"
#include "wire/records.h"

namespace {

struct Member {
    uint32_t group;
    uint16_t vid;  // 0: of a plain group
    uint32_t ifUnit;
    auto operator<=>(const Member&) const = default;
};

// The operations of a table whose rows `Index` addresses.
template <typename Index>
struct MemberTable {
    PortIsolateOpcode set, get, next;
};
constexpr MemberTable<PortIsolateIfGrpIndex> GROUPS = {OP_GROUP_SET, OP_GROUP_GET, OP_GROUP_GET_NEXT};
constexpr MemberTable<PortIsolateIfVlanGrpIndex> VLAN_GROUPS = {OP_VLAN_GROUP_SET, OP_VLAN_GROUP_GET,
                                                                OP_VLAN_GROUP_GET_NEXT};

std::mutex gReading;                  // guards what follows, and keeps looks at the tables apart
std::map<Member, std::string> gTold;  // what the plane knows, with the device that each had then
bool gBehind = false;                 // it has not heard of everything

Member memberOf(const PortIsolateIfGrpIndex& row) {
    return {row.isoGrpNo, 0, row.ifUnit};
}
Member memberOf(const PortIsolateIfVlanGrpIndex& row) {
    return {row.isoGrpNo, static_cast<uint16_t>(row.vlan), row.ifUnit};
}

bool canSpan(const PortIsolateIfGrpIndex& row) {
    return row.isoGrpNo >= 1 && row.isoGrpNo <= SPANNING_GROUP_MAX;
}
bool canSpan(const PortIsolateIfVlanGrpIndex& row) {
    return row.isoGrpNo >= 1 && row.isoGrpNo <= SPANNING_GROUP_MAX && row.vlan >= 1 &&
           row.vlan <= VLAN_ID_MAX;
}

// The row behind this one, which need not be there.
template <typename Index>
bool nextRow(const OperationTable& table, const MemberTable<Index>& rows, Index& row) {
    const IcmHandler* handler = findHandler(table, rows.next);
    Index current = row;
    current.matchMask = 0;
    return handler != nullptr && handler->next(&current, &row) == 0;
}

template <typename Index>
bool isActive(const OperationTable& table, const MemberTable<Index>& rows, Index row) {
    const IcmHandler* handler = findHandler(table, rows.get);
    uint32_t state = 0;
    return handler != nullptr && handler->access(&row, GROUP_COLUMN_ROW_STATUS, &state) == 0 &&
           state == ROW_STATE_PROGRAMMED;
}

// Whether there is an active row of this key. Get would report one that is not there, get next does not.
template <typename Index>
bool isMember(const OperationTable& table, const MemberTable<Index>& rows, const Index& row) {
    if (row.ifUnit == 0) return false;
    Index found = row;
    --found.ifUnit;
    return nextRow(table, rows, found) && memberOf(found) == memberOf(row) && isActive(table, rows, found);
}

// Rows stand in the order of their groups.
template <typename Index>
void collectMembers(const OperationTable& table, const MemberTable<Index>& rows, std::set<Member>& members) {
    for (Index row = {}; nextRow(table, rows, row) && row.isoGrpNo <= SPANNING_GROUP_MAX;) {
        if (canSpan(row) && isActive(table, rows, row)) members.insert(memberOf(row));
    }
}

// The board's lock is held. A port that the board does not know can neither send nor receive.
void tellPlane(Board& board, const Member& member, bool active) {
    const Interface* interface = findInterface(board, member.ifUnit);
    const auto told = gTold.find(member);
    if (!active && told == gTold.end()) return;
    if (active && interface == nullptr) return;
    if (active && told != gTold.end() && told->second == deviceOf(*interface)) return;
    const PlanePort nameless = {.ifUnit = member.ifUnit,
                                .slot = 0,
                                .access = false,
                                .trunkMember = false,
                                .name = "",
                                .device = "",
                                .trunkDevice = "",
                                .switchId = ""};
    const PlanePort port = interface == nullptr ? nameless : planePort(board, *interface);
    const int32_t status = board.plane.setMember(board.plane.state, port, member.group, member.vid, active);
    if (status != 0) {
        hostReport("{} {} members of group {} on other machines: {}",
                   interface == nullptr ? std::to_string(member.ifUnit) : interface->name,
                   active ? "is not kept from" : "stays kept from", member.group, std::strerror(status));
    }
    if (active) {
        gTold.insert_or_assign(member, deviceOf(*interface));
    } else {
        gTold.erase(member);
    }
}

// What the plane may have heard in part is told again later: it does not mind.
void fallBehind() {
    gBehind = true;
    reportRemark("no memory to tell who is a member on other machines: the next request or event does");
}

// Lets `tell` tell the plane; what it says is in force when this returns, or reported.
template <typename Tell>
void inOneGo(Tell&& tell) {
    Board& board = theBoard();
    std::lock_guard guard(board.lock);
    const Plane& plane = board.plane;
    plane.begin(plane.state);
    try {
        tell(board);
    } catch (const std::bad_alloc&) {
        fallBehind();
    }
    try {
        plane.end(plane.state);
    } catch (const std::bad_alloc&) {  // the plane shows what is missing
        fallBehind();
    }
}

// The lock is held, here and in what follows.
void compareAll(const OperationTable& table) {
    gBehind = false;
    std::set<Member> members;
    try {
        collectMembers(table, GROUPS, members);
        collectMembers(table, VLAN_GROUPS, members);
    } catch (const std::bad_alloc&) {
        return fallBehind();
    }
    inOneGo([&](Board& board) {
        for (const Member& member : members) tellPlane(board, member, true);
        for (auto told = gTold.begin(); told != gTold.end();) {
            const Member member = told->first;
            ++told;
            if (!members.contains(member)) tellPlane(board, member, false);
        }
    });
}

template <typename Index>
void compareRow(const OperationTable& table, const MemberTable<Index>& rows, const void* record) {
    Index row = {};
    std::memcpy(&row, record, sizeof(row));
    if (!canSpan(row)) return;
    const bool active = isMember(table, rows, row);
    inOneGo([&](Board& board) { tellPlane(board, memberOf(row), active); });
}

void readMember(const OperationTable& table, uint32_t opcode, const void* index) {
    const bool plain = opcode == GROUPS.set || opcode == portIsolateSyncOf(GROUPS.set);
    const bool inVlan = opcode == VLAN_GROUPS.set || opcode == portIsolateSyncOf(VLAN_GROUPS.set);
    if (index == nullptr || (!plain && !inVlan)) return;
    std::lock_guard guard(gReading);
    if (gBehind) return compareAll(table);
    if (plain) compareRow(table, GROUPS, index);
    if (inVlan) compareRow(table, VLAN_GROUPS, index);
}

void readMembers(const OperationTable& table) {
    std::lock_guard guard(gReading);
    compareAll(table);
}

}  // namespace

void followMembers() {
    if (theBoard().span.empty()) return;
    afterEachSet(readMember);
    afterEvents([] {
        const OperationTable* table = servedTable();
        if (table != nullptr) readMembers(*table);
    });
}
