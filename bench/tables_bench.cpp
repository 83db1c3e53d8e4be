// What the daemon's own work costs with nothing below it: groups built and dissolved, groups that share their
// pairs, rows read one by one, events that change nothing. A counter ns_per_THING is the cost of one of the
// things, whatever the time column counts.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "bench/empty_platform.h"
#include "daemon/api/group_api.h"
#include "daemon/api/pair_api.h"
#include "daemon/base/state.h"
#include "daemon/start/event_task.h"
#include "daemon/tables/pairs.h"
#include "platform/route_messages.h"
#include "wire/records.h"
#include "wire/scalars.h"

namespace {

constexpr uint32_t TRUNK = 1000;
constexpr uint32_t TRUNK_PORTS = 8;
constexpr int64_t LIMIT = SERIAL_RECORD_SLOTS_MAX;  // interfaces

// Processor time of this thread: other load on the machine does not count.
double seconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void must(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::exit(EXIT_FAILURE);
}

uint32_t rowsOf(ListNode* head) {
    uint32_t rows = 0;
    for (const ListNode* node = head->next; node != head; node = node->next) ++rows;
    return rows;
}

void groupRequest(uint32_t rowStatus, uint32_t ifUnit, uint32_t grp) {
    PortIsolateIfGrpIndex index = {};
    index.ifUnit = ifUnit;
    index.isoGrpNo = grp;
    must(portIsolateIfGrpSetApi(&index, GROUP_COLUMN_ROW_STATUS, &rowStatus) == 0, "a request was refused");
}

// `total` seconds of all iterations, as nanoseconds for one of the `things` of each.
void report(benchmark::State& state, const char* name, double total, double things) {
    const double all = things * static_cast<double>(state.iterations());
    state.counters[name] = benchmark::Counter(total * 1e9 / all);
}

struct Layout {
    const char* name;
    const char* srcToPort;
    const char* dstToPort;
    bool trunk;
};
constexpr Layout LAYOUTS[] = {{"both", "1", "1", false}, {"one", "1", "0", false}, {"trunk", "1", "1", true}};

std::vector<uint32_t> startWithMembers(const Layout& layout, bool serials, uint32_t count) {
    const std::string limit = std::to_string(layout.trunk ? count + TRUNK_PORTS : count);
    startDaemon({{"portisolate.maxifnum", limit},
                 {"portisolate.maxifnumpergrp", limit},
                 {"portisolate.srcaggtoport", layout.srcToPort},
                 {"portisolate.dstaggtoport", layout.dstToPort},
                 {"portisolate.supportserial", serials ? "t" : "f"}});
    std::vector<uint32_t> units;
    for (uint32_t unit = 1; unit <= count; ++unit) units.push_back(unit);
    if (!layout.trunk) return units;
    device.trunk = units[count / 2] = TRUNK;
    for (uint32_t port = 1; port <= TRUNK_PORTS; ++port) device.members.push_back(TRUNK + port);
    return units;
}

// One group, built and dissolved member by member by requests.
void groupLife(benchmark::State& state, const Layout& layout, bool serials) {
    const auto units = startWithMembers(layout, serials, static_cast<uint32_t>(state.range(0)));
    double built = 0;
    double dissolved = 0;
    uint32_t pairs = 0;
    for (auto _ : state) {
        const double start = seconds();
        for (const uint32_t unit : units) {
            groupRequest(ROW_CREATE, unit, 1);
            groupRequest(ROW_ACTIVATE, unit, 1);
        }
        const double building = seconds() - start;
        pairs = rowsOf(&gPortIsoInfo.ifInnerList);
        const double half = seconds();
        for (const uint32_t unit : units) groupRequest(ROW_DESTROY, unit, 1);
        const double dissolving = seconds() - half;
        must(listIsEmpty(&gPortIsoInfo.ifInnerList), "a pair was left");
        state.SetIterationTime(building + dissolving);
        built += building;
        dissolved += dissolving;
    }
    report(state, "ns_per_pair_built", built, pairs);
    report(state, "ns_per_pair_dissolved", dissolved, pairs);
}

// One more group, of 64 interfaces that are all in each of the groups before: every pair is claimed again.
// With all members there before the first is activated, each claims the pairs with all others.
void oneMoreGroup(benchmark::State& state, bool wholeJoin) {
    constexpr uint32_t MEMBERS = 64;
    constexpr double CLAIMS = MEMBERS * (MEMBERS - 1);
    const auto before = static_cast<uint32_t>(state.range(0));
    startDaemon({{"portisolate.maxisogrpnum", "64"}});
    const auto everyMember = [](uint32_t rowStatus, uint32_t grp) {
        for (uint32_t unit = 1; unit <= MEMBERS; ++unit) groupRequest(rowStatus, unit, grp);
    };
    for (uint32_t grp = 1; grp <= before; ++grp) {
        everyMember(ROW_CREATE, grp);
        everyMember(ROW_ACTIVATE, grp);
    }
    double total = 0;
    for (auto _ : state) {
        const double start = seconds();
        everyMember(ROW_CREATE, before + 1);
        const double created = seconds();
        everyMember(ROW_ACTIVATE, before + 1);
        const double spent = seconds() - (wholeJoin ? start : created);
        everyMember(ROW_DESTROY, before + 1);
        state.SetIterationTime(spent);
        total += spent;
    }
    report(state, "ns_per_claim", total, CLAIMS);
}

// A pair table of so many rows, 256 targets to a source.
void startWithPairs(uint32_t rows) {
    startDaemon({{"portisolate.maxifnum", std::to_string(LIMIT)}});
    for (uint32_t row = rows; row > 0; --row) {
        must(portIsolateIfPairEntryAdd(1 + (row - 1) / 256, 1000 + (row - 1) % 256) != nullptr, "no row");
    }
}

void walkByNext(benchmark::State& state) {
    const auto rows = static_cast<uint32_t>(state.range(0));
    startWithPairs(rows);
    const double start = seconds();
    for (auto _ : state) {
        PortIsolateIfPairIndex index = {};
        uint32_t seen = portIsolateIfPairGetFirst(&index) == 0 ? 1 : 0;
        for (PortIsolateIfPairIndex next; portIsolateIfPairGetNext(&index, &next) == 0; index = next) ++seen;
        must(seen == rows, "the walk missed rows");
    }
    report(state, "ns_per_row", seconds() - start, rows);
}

void getRow(benchmark::State& state) {
    const auto rows = static_cast<uint32_t>(state.range(0));
    startWithPairs(rows);
    uint32_t row = 0;
    for (auto _ : state) {
        row = (row + 7919) % rows;
        PortIsolateIfPairIndex index = {};
        index.src = 1 + row / 256;
        index.dst = 1000 + row % 256;
        uint32_t value = 0;
        must(portIsolateIfPairGetApi(&index, PAIR_COLUMN_ROW_STATUS, &value) == 0, "a row was not found");
    }
}

void getFirst(benchmark::State& state) {
    startWithPairs(static_cast<uint32_t>(state.range(0)));
    for (auto _ : state) {
        PortIsolateIfPairIndex index = {};
        must(portIsolateIfPairGetFirst(&index) == 0, "no first row");
    }
}

struct LinkMessage {
    RtMsgHdr header;
    RtIfInfo info;
    RtAttr attribute;
    uint32_t value;
};
static_assert(sizeof(LinkMessage) == 56);

// 100 link messages about interfaces that no table names, with a group and a pair table at their limits.
void quietDatagram(benchmark::State& state, uint16_t type, uint32_t changeMask, uint16_t attribute) {
    constexpr uint32_t MESSAGES = 100;
    startWithPairs(65536);
    for (uint32_t unit = 1; unit <= 64; ++unit) {
        for (uint32_t grp = 1; grp <= 16; ++grp) groupRequest(ROW_CREATE, 5000 + unit, grp);
    }
    static LinkMessage datagram[MESSAGES];
    for (uint32_t i = 0; i < MESSAGES; ++i) {
        LinkMessage& message = datagram[i] = {};
        message.header.length = sizeof(message);
        message.header.type = type;
        message.info.ifUnit = 7000 + i;
        message.info.changeMask = changeMask;
        message.attribute = {sizeof(RtAttr) + sizeof(uint32_t), attribute};
        message.value = 8000 + i;
    }
    for (auto _ : state) portIsolateEvtNotifyRecv(datagram, sizeof(datagram));
}

void registerAll() {
    for (const Layout& layout : LAYOUTS) {
        for (const bool serials : {false, true}) {
            const std::string name = std::string("group/") + layout.name + (serials ? "/serials" : "/plain");
            auto* bench = benchmark::RegisterBenchmark(name.c_str(), groupLife, layout, serials);
            for (const int64_t members : {8, 64, 128, 256}) bench->Arg(members);
            bench->Arg(LIMIT)->UseManualTime()->Unit(benchmark::kMicrosecond);
        }
    }
    for (const bool whole : {false, true}) {
        auto* bench =
            benchmark::RegisterBenchmark(whole ? "groups/join" : "groups/claim", oneMoreGroup, whole);
        for (const int64_t groups : {1, 8, 16, 32, 63}) bench->Arg(groups);
        bench->UseManualTime()->Unit(benchmark::kMicrosecond);
    }
    for (const int64_t rows : {1024, 4096, 16384, 65536}) {
        benchmark::RegisterBenchmark("rows/get", getRow)->Arg(rows);
        benchmark::RegisterBenchmark("rows/first", getFirst)->Arg(rows);
        benchmark::RegisterBenchmark("rows/next", walkByNext)->Arg(rows)->Unit(benchmark::kMicrosecond);
    }
    const struct {
        const char* name;
        uint16_t type;
        uint32_t changeMask;
        uint16_t attribute;
    } datagrams[] = {
        {"datagram/changed", DAX_RTM_NEWLINK, 1, 1},
        {"datagram/registered", DAX_RTM_NEWLINK, RT_CHANGE_REGISTER, 1},
        {"datagram/member_added", DAX_RTM_NEWLINK, 1, DAX_RTA_MEMBER_ADD},
        {"datagram/joined_trunk", DAX_RTM_NEWLINK, 1, DAX_RTA_TRUNK_JOIN},
        {"datagram/deleted", DAX_RTM_DELLINK, 0, 1},
    };
    for (const auto& row : datagrams) {
        benchmark::RegisterBenchmark(row.name, quietDatagram, row.type, row.changeMask, row.attribute)
            ->Unit(benchmark::kMicrosecond);
    }
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
