#include "bench/empty_platform.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "daemon/base/state.h"
#include "daemon/start/options.h"
#include "platform/hardware.h"
#include "platform/services.h"

Device device;

namespace {
std::map<std::string, std::string> optionTexts;
}

void startDaemon(const std::map<std::string, std::string>& options) {
    PortIsoInfo& info = gPortIsoInfo;
    for (SilMemPool* pool : {&info.ifGrpPool, &info.ifVlanGrpPool, &info.portPool, &info.ifPairPool,
                             &info.refPool, &info.ifSerialPool}) {
        silMemPoolDestroy(pool);
    }
    device = {};
    optionTexts = options;
    if (portIsolateOptInit() == 0) return;
    std::fprintf(stderr, "the daemon does not start with these options\n");
    std::exit(EXIT_FAILURE);
}

extern "C" {

char* daxIfUnit2Name(uint32_t, char* name, uint32_t) {
    name[0] = '\0';
    return name;
}

int32_t daxIfGetApi(uint32_t ifUnit, uint32_t, uint32_t* word) {
    *word = ifUnit == device.trunk ? DAX_IF_FLAG_TRUNK : 0;
    return 0;
}

int32_t daxEthAggIfGetApi(uint32_t, uint32_t, DataDesc* members) {
    members->length = static_cast<uint32_t>(device.members.size() * sizeof(uint32_t));
    std::memcpy(members->data, device.members.data(), members->length);
    return 0;
}

int32_t daxIndexTrans(uint32_t, uint32_t, uint32_t*) {
    return 0;
}
int32_t daxHwilIfGet(uint32_t, uint32_t, uint32_t* word) {
    *word = 1;
    return 0;
}
int32_t daxIfSyncApi(uint32_t, uint32_t, void*) {
    return 0;
}
int32_t daxVlanSetApi(uint32_t, uint32_t, void*) {
    return 0;
}
int32_t daxScalarSetApi(uint32_t, uint32_t, AttrSetRecord*) {
    return 0;
}
int32_t daxHwilScalarSet(uint32_t, uint32_t, void*, uint32_t) {
    return 0;
}
int32_t daxHwilScalarGet(uint32_t, uint32_t, void*) {
    return 0;
}
int32_t daxHwilCmdSetApi(uint32_t, uint32_t, DataDesc*, HwCmdControl*) {
    return 0;
}
int32_t daxHwilCmdSyncApi(uintptr_t, uint32_t, void*, HwCmdControl*) {
    return 0;
}
int32_t daxCardUpPcsSet(void*, uint32_t) {
    return 0;
}

int32_t silOptRead(uint32_t, const char* key, uint32_t, uint32_t, uint32_t, char* buffer, uint32_t capacity) {
    const auto option = optionTexts.find(key);
    if (option == optionTexts.end()) return 0;
    std::snprintf(buffer, capacity + 1, "%s", option->second.c_str());
    return 1;
}

SilSem silCreateBSem(uint32_t, uint32_t) {
    return &optionTexts;
}
int32_t silTakeSem(SilSem, int32_t) {
    return 0;
}
int32_t silGiveSem(SilSem) {
    return 0;
}
int32_t silDeleteSem(SilSem) {
    return 0;
}
int32_t silCreateTask(const char*, uint32_t, uint32_t, void (*)(void), uint32_t, uint32_t, uint32_t*) {
    return 0;
}
int32_t icmProcTcpInit(const char*, const char*, const IcmFuncMapEntry*, uint32_t) {
    return 0;
}
void loggingDebugOutput(uint32_t, uint32_t, uint32_t, const char*, ...) {}
void loggingLogOutput(uint32_t, uint32_t, uint32_t, const char*, ...) {}
int32_t dax_socket(int32_t, int32_t, int32_t) {
    return 0;
}
int32_t dax_bind(int32_t, const void*, uint32_t) {
    return 0;
}
int32_t dax_setsockopt(int32_t, int32_t, int32_t, const void*, uint32_t) {
    return 0;
}
int32_t dax_select(int32_t, DaxFdSet*, DaxFdSet*, DaxFdSet*, void*) {
    return 0;
}
int32_t dax_recvfrom(int32_t, void*, uint32_t, int32_t, void*, uint32_t*) {
    return 0;
}
int32_t dax_close(int32_t) {
    return 0;
}
int32_t errnoGet(void) {
    return 0;
}
}
