#include "daemon/show/show.h"

#include <cstdio>

#include "daemon/base/state.h"
#include "daemon/tables/groups.h"
#include "daemon/tables/pairs.h"
#include "daemon/tables/ports.h"

namespace {

constexpr uint32_t VLAN_TEXT_SIZE = 512;
constexpr uint32_t VLAN_TEXT_LIMIT = 100;
constexpr uint32_t REF_BYTES_PER_LINE = 16;

template <typename Entry, typename Print>
void printTable(const Table<Entry>& table, Print print) {
    for (Entry* entry = tableFirst(table); entry != nullptr; entry = tableNext(table, entry)) print(*entry);
}

void printPair(const PortIsolateIfPairEntry& entry) {
    std::printf("  src %u, dst %u, ref:\r\n", entry.src, entry.dst);
    for (uint32_t i = 0; i < bitListBytes(gPortIsoInfo.maxIsoGrpNum); ++i) {
        if (i != 0 && i % REF_BYTES_PER_LINE == 0) std::printf("\r\n");
        std::printf("%02x ", entry.ref[i]);
    }
    std::printf("\r\n");
}

void printVlans() {
    const uint32_t bytes = gPortIsoInfo.p2pEnableVlanLen;
    uint32_t position = 0;
    while (position != bytes * 8) {
        char text[VLAN_TEXT_SIZE];
        position = portIsolatebitList2Str(gPortIsoInfo.p2pEnableVlan, bytes, text, VLAN_TEXT_LIMIT, position);
        std::printf(" p2pEnableVlan: %s\r\n", text);
    }
}

}  // namespace

uint32_t portIsolatebitList2Str(const uint8_t* list, uint32_t bytes, char* output, uint32_t limit,
                                uint32_t start) {
    bool inRun = false;
    uint32_t first = 0;
    uint32_t last = 0;
    uint32_t written = 0;
    const auto write = [&](const char* format, uint32_t number) {
        written += static_cast<uint32_t>(std::sprintf(output + written, format, number));
    };
    output[0] = '\0';
    for (uint32_t v = start; v < bytes * 8; ++v) {
        if (bitListTest(list, v) == 0) continue;
        if (!inRun) {
            inRun = true;
            first = last = v;
            write("%d", v);
        }
        if (v - last < 2) {
            last = v;
            continue;
        }
        if (first < last) write("-%d", last);
        first = last = v;
        if (written > limit) return v;
        write(",%d", v);
    }
    if (first < last) write("-%d", last);
    return bytes * 8;
}

void portIsolateGlobalShow() {
    const PortIsoInfo& info = gPortIsoInfo;
    std::printf("\r\n[PORT-ISOLATE] global info:\n\r");
    std::printf(" maxPortNum: %u\n\r", info.maxPortNum);
    std::printf(" maxIsoGrpNum: %u\n\r", info.maxIsoGrpNum);
    std::printf(" maxPortNumPerGrp: %u\n\r", info.maxPortNumPerGrp);
    std::printf(" maxUniIsoPortNum: %u\n\r", info.maxUniIsoPortNum);
    std::printf(" mode: %u\n\r", info.mode);
    std::printf(" mutex: %p\n\r", info.mutex);
    std::printf(" rtSock: %d\n\r", info.rtSock);
    std::printf(" isSrcTrunkToPort: %d\n\r", info.isSrcTrunkToPort);
    std::printf(" isDstTrunkToPort: %d\n\r", info.isDstTrunkToPort);
    std::printf(" isSupportSerial: %d\n\r", info.isSupportSerial);
    std::printf(" modeAbility: [0]%d,[1]%d,[2]%d,[3]%d.\n\r", info.modeAbility[0], info.modeAbility[1],
                info.modeAbility[2], info.modeAbility[3]);
    std::printf(" defaultMode: %d\n\r", info.defaultMode);
    std::printf(" slotCheck: %d\n\r", info.slotCheck);
    std::printf(" vlanGroupEnable: %d\n\r", info.vlanGroupEnable);
    printVlans();
}

void portIsolateSerialShow() {
    std::printf("\r\n[PORT-ISOLATE] serial info:\n\r");
    for (uint32_t i = 0; i < gPortIsoInfo.maxPortNum; ++i) {
        std::printf("serial %u -> ifunit:%u\r\n", i, gPortIsoInfo.serialTable[i]);
    }
}

void portIsolateGrpShow() {
    std::printf("\r\n[PORT-ISOLATE] if group info:\n\r");
    printTable(GROUP_TABLE, [](const PortIsolateIfGrpEntry& entry) {
        std::printf("  isoGrpNo %u -> ifunit:%u\r\n", entry.isoGrpNo, entry.ifUnit);
    });
    std::printf("\r\n[PORT-ISOLATE] if vlan group info:\n\r");
    printTable(VLAN_GROUP_TABLE, [](const PortIsolateIfVlanGrpEntry& entry) {
        std::printf("  isoGrpNo %u vlan %u -> ifunit:%u\r\n", entry.isoGrpNo, entry.vlan, entry.ifUnit);
    });
}

void portIsolateIfPairShow() {
    std::printf("\r\n[PORT-ISOLATE] if pair info:\n\r");
    printTable(PAIR_TABLE, printPair);
}

void portIsolateIfInnerShow() {
    std::printf("\r\n[PORT-ISOLATE] if inner info:\n\r");
    printTable(INNER_TABLE, printPair);
}

void portIsolatePortShow() {
    std::printf("\r\n[PORT-ISOLATE] port info:\n\r");
    printTable(PORT_TABLE,
               [](const PortIsolatePortEntry& entry) { std::printf("  ifUnit:%u\r\n", entry.ifUnit); });
}
