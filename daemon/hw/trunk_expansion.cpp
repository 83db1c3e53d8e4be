#include "daemon/hw/trunk_expansion.h"

#include "daemon/base/report.h"
#include "daemon/hw/bi_isolation.h"
#include "daemon/hw/uni_isolation.h"
#include "wire/status.h"

namespace {

constexpr uint32_t MEMBERS_MAX = 128;  // member ports that a trunk can contribute

struct PortSet {
    uint32_t ports[MEMBERS_MAX];
    uint32_t count;
};

int32_t readMembers(uint32_t trunk, PortSet& set) {
    set = {};
    DataDesc members = {set.ports, sizeof(set.ports)};
    const int32_t status = daxEthAggIfGetApi(trunk, DAX_AGG_ATTR_MEMBERS, &members);
    if (status != 0) {
        PORT_ISOLATE_TRACE(LEVEL_MEMBERS, CATEGORY_WORK, "get member of trunk %s failed.(%d)\n\r",
                           ifName(trunk).text, status);
        return status;
    }
    set.count = members.length / static_cast<uint32_t>(sizeof(uint32_t));
    if (set.count > MEMBERS_MAX) set.count = MEMBERS_MAX;
    return STATUS_OK;
}

// The interface's members, or the interface itself.
int32_t expand(uint32_t ifUnit, bool replace, PortSet& set) {
    if (replace) return readMembers(ifUnit, set);
    set.ports[0] = ifUnit;
    set.count = 1;
    return STATUS_OK;
}

// Calls perPair(x, y) for each pair of ports, until it answers non-zero.
template <typename PerPair>
int32_t expandPair(uint32_t src, uint32_t dst, bool replaceSrcTrunk, bool replaceDstTrunk, PerPair perPair) {
    const bool srcIsTrunk = portIsAG(src) != 0;
    const bool dstIsTrunk = portIsAG(dst) != 0;
    PortSet sources;
    PortSet targets;
    int32_t status = expand(src, srcIsTrunk && replaceSrcTrunk, sources);
    if (status != 0) return status;
    status = expand(dst, dstIsTrunk && replaceDstTrunk, targets);
    if (status != 0) return status;
    for (uint32_t s = 0; s < sources.count; ++s) {
        for (uint32_t t = 0; t < targets.count; ++t) {
            status = perPair(sources.ports[s], targets.ports[t]);
            if (status != 0) return status;
        }
    }
    return STATUS_OK;
}

using PhyBiIsolate = int32_t (*)(uint32_t grpNo, uint32_t vid, uint32_t first, uint32_t second);
using PhyUniIsolate = int32_t (*)(uint32_t src, uint32_t dst);

void traceCall(const char* operation, uint32_t src, uint32_t dst) {
    PORT_ISOLATE_TRACE(LEVEL_TRACE, CATEGORY_WORK, "%s [src: %s, target: %s]\n\r", operation,
                       ifName(src).text, ifName(dst).text);
}

int32_t expandBi(uint32_t grpNo, uint32_t vid, uint32_t src, uint32_t dst, PhyBiIsolate isolate) {
    return expandPair(src, dst, gPortIsoInfo.isSrcTrunkToPort != 0, gPortIsoInfo.isDstTrunkToPort != 0,
                      [=](uint32_t x, uint32_t y) { return isolate(grpNo, vid, x, y); });
}

int32_t expandUni(uint32_t src, uint32_t dst, PhyUniIsolate isolate) {
    return expandPair(src, dst, gPortIsoInfo.isSrcTrunkToPort != 0, true, [=](uint32_t x, uint32_t y) {
        isolate(x, y);
        return STATUS_OK;
    });
}

}  // namespace

uint32_t portIsAG(uint32_t ifUnit) {
    uint32_t flags = 0;
    const int32_t status = daxIfGetApi(ifUnit, DAX_IF_ATTR_FLAGS, &flags);
    if (status != 0) {
        PORT_ISOLATE_TRACE(LEVEL_FAILURE, CATEGORY_WORK, "get interface %s ond flag failed.(%d)\n\r",
                           ifName(ifUnit).text, status);
        return 0;
    }
    return flags & DAX_IF_FLAG_TRUNK;
}

int32_t portIsolateAddHwIfBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t src, uint32_t dst) {
    traceCall("add hw-if bi-isolate", src, dst);
    return expandBi(grpNo, vid, src, dst, portIsolateAddPhyBiIsolate);
}

int32_t portIsolateDelHwIfBiIsolate(uint32_t grpNo, uint32_t vid, uint32_t src, uint32_t dst) {
    traceCall("del hw-if bi-isolate", src, dst);
    return expandBi(grpNo, vid, src, dst, portIsolateDelPhyBiIsolate);
}

int32_t portIsolateAddHwIfUniIsolate(uint32_t src, uint32_t dst) {
    traceCall("add hw-if uni-isolate", src, dst);
    return expandUni(src, dst, portIsolateAddHwPhyUniIsolate);
}

int32_t portIsolateDelHwIfUniIsolate(uint32_t src, uint32_t dst) {
    traceCall("del hw-if uni-isolate", src, dst);
    return expandUni(src, dst, portIsolateDelHwPhyUniIsolate);
}
