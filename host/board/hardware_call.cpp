#include "host/board/hardware_call.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

constexpr std::string_view CALLS[] = {
    "daxIfGetApi",      "daxEthAggIfGetApi", "daxIndexTrans",     "daxHwilIfGet",
    "daxIfSyncApi",     "daxVlanSetApi",     "daxScalarSetApi",   "daxHwilScalarSet",
    "daxHwilScalarGet", "daxHwilCmdSetApi",  "daxHwilCmdSyncApi", "daxCardUpPcsSet",
};

}  // namespace

bool isHardwareCall(std::string_view name) {
    return std::find(std::begin(CALLS), std::end(CALLS), name) != std::end(CALLS);
}
