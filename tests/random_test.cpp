// Random requests and events, with what must hold after each of them.
#include "tests/daemon_driver.h"
#include "tests/dice.h"
#include "tests/invariants.h"

namespace {

constexpr uint32_t RUNS = 120;
constexpr uint32_t WATCHED_RUNS = 400;
constexpr uint32_t STEPS = 150;

const std::vector<uint32_t> ALL_UNITS = {1, 2, 3, 4, 5, 21, 22, 31, 100, 200, 300};
std::vector<uint32_t> units = ALL_UNITS;  // of this session: few of them meet in more ways
const std::vector<uint32_t> ROW_VALUES = {ROW_ACTIVATE, ROW_ACTIVATE, ROW_CREATE, ROW_CREATE,
                                          ROW_DESTROY,  ROW_PROBE,    7};

Bytes randomEvent() {
    const uint32_t unit = pick(units);
    const uint32_t port = pick(units);
    Bytes rubbish = linkMessage(DAX_RTM_NEWLINK, unit, 0, attribute(DAX_RTA_MEMBER_ADD, port));
    for (int i = 0; i < 2; ++i) {
        const uint32_t half = roll(2) == 0 ? roll(64) : roll(1 << 16);
        const uint32_t word = half << 16 | half;  // the same in every byte order
        std::memcpy(rubbish.data() + 4 * roll(14), &word, sizeof(word));
    }
    return pick<Bytes>({rubbish, linkMessage(DAX_RTM_NEWLINK, unit, RT_CHANGE_REGISTER),
                        linkMessage(DAX_RTM_NEWLINK, unit, 0, attribute(DAX_RTA_TRUNK_JOIN, 0)),
                        linkMessage(DAX_RTM_NEWLINK, 100, 0, attribute(DAX_RTA_MEMBER_ADD, port)),
                        linkMessage(DAX_RTM_NEWLINK, 100, 0, attribute(DAX_RTA_MEMBER_DEL, port)),
                        linkMessage(DAX_RTM_DELLINK, pick<uint32_t>({unit, 1010, 1020, 5094, 5095})),
                        linkMessage(DAX_RTM_IF_RESET, unit),
                        plainMessage(roll(4) == 0 ? DAX_RTM_RESET : DAX_RTM_SERIAL_SYNC),
                        plainMessage(DAX_RTM_CARD_UP, Bytes(16))});
}

uint32_t pickGroup() {
    return roll(3) == 0 ? gPortIsoInfo.maxIsoGrpNum : roll(6);
}

// Any operation with any key, and what it answers.
void askAnything() {
    const uint32_t opcode = 1 + roll(OP_COUNT - 1);
    const OpShape& shape = PORT_ISOLATE_OP_SHAPES[opcode];
    uint32_t index[] = {pick(units), pickGroup(), roll(2) * 10, roll(8)};
    if (opcode == OP_PAIR_SET || opcode == OP_PAIR_GET || roll(3) == 0) index[1] = pick(units);
    if (shape.indexIsNumber) index[0] = pick<uint32_t>({0, 1, 10, 19, 20, 4095});
    if (shape.indexLength == sizeof(uint32_t[3])) index[2] = index[3];
    const uint32_t column = roll(2) == 0            ? roll(20)
                            : opcode == OP_PAIR_SET ? PAIR_COLUMN_ROW_STATUS
                                                    : SCALAR_MODE;
    std::array<uint32_t, 512> value = {1 + roll(4)};
    DataDesc buffer = {value.data(), pick<uint32_t>({2, 8, 1024})};
    const bool isBuffer = shape.indexLength == 0 && portIsolateScalarIsBuffer(column);
    if (shape.kind == OpKind::set && column == SCALAR_DEBUG_MASK) return;
    const int32_t status = perform(opcode, index, column,
                                   isBuffer ? static_cast<void*>(&buffer) : static_cast<void*>(value.data()));
    std::string answer = words("op %u = %d:", opcode, status);
    for (const uint32_t word : index) answer += words(" %u", word);
    const bool word = !isBuffer && shape.kind != OpKind::set && status == 0;
    fake.calls.push_back(answer + (word ? words(" -> %u", value[0]) : ""));
}

void randomStep() {
    const uint32_t value = pick(ROW_VALUES);
    const uint32_t unit = pick(units), target = pick(units), grp = pickGroup();
    const uint32_t vlan = pick<uint32_t>({0, 10, 20}), pon = pick<uint32_t>({0, 1, 10, 20, 4094, 4095, 4096});
    const uint32_t kind = roll(8);
    if (kind == 0) groupJoin(unit, grp);
    if (kind == 1) groupSet(value, unit, grp);
    if (kind == 2) vlanGroupSet(value, unit, grp, vlan);
    if (kind == 3) pairSet(value, unit, target);
    if (kind == 4) ponSet(pon, roll(4));
    if (kind == 5) deliver(randomEvent());
    if (kind > 5) askAnything();
}

// Every call, text and answer of these sessions, as one number. Boards and operators rely on all of them: it
// changes with a change of behaviour that was meant, and with nothing else.
constexpr uint64_t SESSIONS_DIGEST = 3349362715120310283u;

// FNV-1a.
struct Digest {
    uint64_t sum = 0xCBF29CE484222325;
};

void takeUp(Digest& digest, Calls& lines) {
    for (const std::string& line : lines) {
        for (const char byte : line + '\n') {
            digest.sum = (digest.sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
        }
    }
    lines.clear();
}

TEST(Random, StructureHoldsUnderFaultsAndNothingIsSaidOrAskedAnew) {
    Digest digest;
    everySeed(WATCHED_RUNS, [&] {
        const bool src = roll(2) != 0, dst = roll(2) != 0;
        Options options = trunkSwitches(src, dst);
        options["maxifnum"] = std::to_string(3 + roll(8));
        options["maxisogrpnum"] = std::to_string(1 + roll(12));
        options["maxifnumpergrp"] = std::to_string(1 + roll(4));
        options["supportserial"] = pick<std::string>({"t", "f"});
        startWatched(CATEGORY_INIT | CATEGORY_WORK | CATEGORY_EVENT | CATEGORY_SERIAL, options);
        fake.interfaces[5094].location = {0, 0, 0, 0, 4094, DAX_LOCATION_KIND_VLAN, 0, 0};
        units = pick<std::vector<uint32_t>>({ALL_UNITS, {1, 2, 3}, {1, 2, 22, 100}});
        for (const uint32_t unit : ALL_UNITS) fake.interfaces[unit].ability = pick<uint32_t>({1, 1, 2, 3});
        const uint32_t faultsIn = pick<uint32_t>({4, 20, 1000, UINT32_MAX});
        fake.fault = [=](const std::string&) { return roll(faultsIn) == 0 ? 5 : 0; };
        for (uint32_t step = 0; step < STEPS && !testing::Test::HasFailure(); ++step) {
            randomStep();
            checkTables();
            takeUp(digest, fake.calls);
            takeUp(digest, fake.texts);
        }
        fake.fault = nullptr;
    });
    if (std::getenv("PORTISOLATE_SEED") != nullptr) return;
    EXPECT_EQ(digest.sum, SESSIONS_DIGEST);
}

using PortPair = std::pair<uint32_t, uint32_t>;
using Claims = std::map<PortPair, std::set<uint32_t>>;  // the groups that need each pair of ports

bool isMemberPort(uint32_t unit) {
    return (fake.interfaces[unit].flags & DAX_IF_FLAG_TRUNK_MEMBER) != 0;
}

std::vector<uint32_t> portsOf(uint32_t unit, bool expand = true) {
    const FakeInterface& interface = fake.interfaces[unit];
    return expand && (interface.flags & DAX_IF_FLAG_TRUNK) != 0 ? interface.members : std::vector{unit};
}

// Under one switch a pair of members comes to two commands, under both or none to one, the lower port first.
template <typename Entry>
void addClaims(Claims& claims) {
    const bool src = gPortIsoInfo.isSrcTrunkToPort != 0;
    const bool dst = gPortIsoInfo.isDstTrunkToPort != 0;
    const auto members = rowsOf(groupTable<Entry>());
    for (const Entry* a : members) {
        for (const Entry* b : members) {
            if (a == b || a->isoGrpNo != b->isoGrpNo) continue;
            for (const uint32_t x : portsOf(a->ifUnit, src)) {
                for (const uint32_t y : portsOf(b->ifUnit, dst)) {
                    claims[src == dst ? PortPair(std::minmax(x, y)) : PortPair(x, y)].insert(a->isoGrpNo);
                }
            }
        }
    }
}

// With every member and pair active and no fault, rows and hardware are exactly what groups and pairs need.
// Left out are self isolations, which only groups of one member with both switches off have.
void checkHardware() {
    Claims claims;
    addClaims<PortIsolateIfGrpEntry>(claims);
    addClaims<PortIsolateIfVlanGrpEntry>(claims);
    Claims rows;
    for (const auto* row : rowsOf(INNER_TABLE)) {
        for (uint32_t grp = 1; row->src != row->dst && grp <= gPortIsoInfo.maxIsoGrpNum; ++grp) {
            if (bitListTest(row->ref, grp - 1) != 0) rows[{row->src, row->dst}].insert(grp);
        }
    }
    EXPECT_EQ(rows, claims);
    UnitPairs bi, uni;
    for (const auto& [pair, groups] : claims) bi.insert(pair);
    for (const PortPair& pair : fake.bi) {
        if (pair.first == pair.second) bi.insert(pair);
    }
    EXPECT_EQ(fake.bi, bi);
    for (const auto* row : rowsOf(PAIR_TABLE)) {
        for (const uint32_t x : portsOf(row->src, gPortIsoInfo.isSrcTrunkToPort != 0)) {
            for (const uint32_t y : portsOf(row->dst)) uni.insert({x, y});
        }
    }
    EXPECT_EQ(fake.uni, uni);
}

bool isIn(uint32_t unit, uint32_t grp) {
    return portIsolateIfGrpEntryGet(unit, grp) != nullptr;
}

int32_t joinStatus(uint32_t unit, uint32_t grp) {
    if (isMemberPort(unit)) return STATUS_NOT_SUPPORTED;
    for (const auto* pair : rowsOf(PAIR_TABLE)) {
        const bool joins =
            pair->src == unit ? isIn(pair->dst, grp) : pair->dst == unit && isIn(pair->src, grp);
        if (joins) return STATUS_PAIR_IN_GROUP;
    }
    return STATUS_OK;
}

int32_t pairStatus(uint32_t src, uint32_t dst) {
    if (src == dst || isMemberPort(src) || isMemberPort(dst)) return STATUS_NOT_SUPPORTED;
    for (uint32_t grp = 1; grp <= 4; ++grp) {
        if (isIn(src, grp) && isIn(dst, grp)) return STATUS_PAIR_SHARES_GROUP;
    }
    return STATUS_OK;
}

// A port of the device moves into a trunk or out of it, with the messages that the platform sends.
void moveMember() {
    const uint32_t trunk = pick<uint32_t>({100, 200, 300});
    std::vector<uint32_t>& members = fake.interfaces[trunk].members;
    if (!members.empty() && roll(2) == 0) {
        const uint32_t port = members.back();
        members.pop_back();
        fake.interfaces[port].flags = 0;
        deliver(linkMessage(DAX_RTM_NEWLINK, trunk, 0, attribute(DAX_RTA_MEMBER_DEL, port)));
        return;
    }
    const uint32_t port = pick<uint32_t>({1, 2, 3, 4, 21, 22, 31, 32, 33});
    if (isMemberPort(port)) return;
    fake.interfaces[port].flags = DAX_IF_FLAG_TRUNK_MEMBER;
    members.push_back(port);
    deliver(linkMessage(DAX_RTM_NEWLINK, port, 0, attribute(DAX_RTA_TRUNK_JOIN, 0)) +
            linkMessage(DAX_RTM_NEWLINK, trunk, 0, attribute(DAX_RTA_MEMBER_ADD, port)));
}

const std::vector<uint32_t> GROUP_UNITS = {1, 2, 3, 4, 21, 31, 100, 200, 300};
const std::vector<uint32_t> VLAN_GROUP_UNITS = {5, 6, 7, 8};  // not those of plain groups

// With both switches off a one-way pair does not follow what becomes of its trunk: there only ports are
// paired.
uint32_t pickPaired() {
    const bool any = gPortIsoInfo.isSrcTrunkToPort != 0 || gPortIsoInfo.isDstTrunkToPort != 0;
    return any ? pick(GROUP_UNITS) : pick<uint32_t>({1, 2, 3, 4});
}

void orderlyStep() {
    const uint32_t unit = pick(GROUP_UNITS);
    const uint32_t grp = 1 + roll(4);
    const uint32_t vlanUnit = pick(VLAN_GROUP_UNITS);
    const uint32_t vlanGrp = 5 + roll(2);
    const uint32_t src = pickPaired();
    const uint32_t dst = pickPaired();
    const uint32_t kind = roll(10);
    const int32_t expected = kind < 3 ? joinStatus(unit, grp) : kind == 6 ? pairStatus(src, dst) : STATUS_OK;
    int32_t status = STATUS_OK;
    if (kind < 3) status = groupJoin(unit, grp);
    if (kind == 3) status = groupSet(ROW_DESTROY, unit, grp);
    if (kind == 4) status = vlanGroupJoin(vlanUnit, vlanGrp, 10);
    if (kind == 5) status = vlanGroupSet(ROW_DESTROY, vlanUnit, vlanGrp, 10);
    if (kind == 6) status = pairJoin(src, dst);
    if (kind == 7) status = pairSet(ROW_DESTROY, src, dst);
    if (kind == 8) deliver(linkMessage(pick<uint16_t>({DAX_RTM_DELLINK, DAX_RTM_IF_RESET}), unit));
    if (kind == 9) moveMember();
    EXPECT_EQ(status, expected) << kind;
}

TEST(Random, RowsAndHardwareAreWhatGroupsAndPairsNeed) {
    everySeed(RUNS, [] {
        const bool src = roll(2) != 0;
        const bool dst = roll(2) != 0;
        Options options = trunkSwitches(src, dst);
        options["supportserial"] = pick<std::string>({"t", "f"});
        ASSERT_EQ(startDaemon(options), 0);
        for (uint32_t step = 0; step < STEPS && !testing::Test::HasFailure(); ++step) {
            orderlyStep();
            checkTables();
            checkHardware();
        }
        for (const uint32_t unit : GROUP_UNITS) {
            for (const uint32_t target : GROUP_UNITS) EXPECT_EQ(pairSet(ROW_DESTROY, unit, target), 0);
        }
        // An interface whose pairs ended with their other ends is still in use until it leaves something
        // itself.
        for (const uint32_t unit : GROUP_UNITS) groupJoin(unit, 1);
        for (const uint32_t unit : GROUP_UNITS) {
            for (uint32_t grp = 1; grp <= 4; ++grp) EXPECT_EQ(groupSet(ROW_DESTROY, unit, grp), 0);
        }
        for (const uint32_t unit : VLAN_GROUP_UNITS) {
            for (uint32_t grp = 5; grp <= 6; ++grp) EXPECT_EQ(vlanGroupSet(ROW_DESTROY, unit, grp, 10), 0);
        }
        checkHardware();
        if (!src && !dst) return;  // a self isolation may outlive its group
        for (const auto& [pool, inUse] : fake.poolsInUse) EXPECT_EQ(inUse, 0) << pool;
        for (uint32_t i = 0; i < gPortIsoInfo.maxPortNum; ++i) EXPECT_EQ(gPortIsoInfo.serialTable[i], 0u);
    });
}

}  // namespace
