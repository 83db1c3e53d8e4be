#include "daemon/start/options.h"

#include <cstdlib>
#include <cstring>

#include "daemon/start/init.h"
#include "platform/services.h"

namespace {

constexpr uint32_t OPTION_TEXT_MAX = 31;

struct OptionText {
    char text[OPTION_TEXT_MAX + 1];
};

// False when the key is absent; the option then keeps its default.
bool readOption(const char* key, OptionText& option) {
    std::memset(option.text, 0, sizeof(option.text));
    return silOptRead(0, key, 0, 0, 1, option.text, OPTION_TEXT_MAX) > 0;
}

uint32_t readNumber(const char* key, uint32_t fallback) {
    OptionText option;
    if (!readOption(key, option)) return fallback;
    return static_cast<uint32_t>(std::strtol(option.text, nullptr, 10));
}

// `chosen` when the text begins with `letter` in either case, else `fallback`.
uint8_t readLetter(const char* key, char letter, uint8_t chosen, uint8_t fallback) {
    OptionText option;
    if (!readOption(key, option)) return fallback;
    return (option.text[0] | 0x20) == letter ? chosen : fallback;
}

}  // namespace

int32_t portIsolateStr2bitList(const char* text, uint8_t* list, uint32_t bytes) {
    for (uint32_t i = 0; text[i] != '\0' && i + 1 < bytes * 8; ++i) {
        if (text[i] == '1') bitListSet(list, i + 1);
    }
    return 0;
}

int32_t portIsolateOptInit() {
    if (readLetter("portisolate.enable", 'f', 0, 1) == 0) return -1;
    const uint32_t maxIfNum = readNumber("portisolate.maxifnum", 64);
    const uint32_t maxIfNumPerGrp = readNumber("portisolate.maxifnumpergrp", 64);
    const uint32_t maxIsoGrpNum = readNumber("portisolate.maxisogrpnum", 16);
    const uint32_t maxUniIsoPortNum = readNumber("portisolate.maxuniisoportnum", 64);
    const uint32_t srcAggToPort = readNumber("portisolate.srcaggtoport", 1);
    const uint32_t dstAggToPort = readNumber("portisolate.dstaggtoport", 1);
    const uint32_t supportSerial = readLetter("portisolate.supportserial", 't', 1, 0);

    uint8_t modeAbility[4] = {0x60, 0, 0, 0};  // modes 1 and 2
    OptionText option;
    if (readOption("portisolate.modeability", option)) {
        std::memset(modeAbility, 0, sizeof(modeAbility));
        portIsolateStr2bitList(option.text, modeAbility, sizeof(modeAbility));
    }

    const uint32_t defaultMode = readNumber("portisolate.defaultmode", 2);
    const uint8_t slotCheck = readLetter("portisolate.slotcheckenable", 't', 1, 0);
    const uint8_t vlanGroupEnable = readLetter("portisolate.vlangroupenable", 't', 1, 2);
    const uint8_t multiGroupCheck = readLetter("portisolate.allowjoinmultigroupperport", 'f', 1, 2);
    return portIsolateInit(maxIfNum, maxIfNumPerGrp, maxIsoGrpNum, maxUniIsoPortNum, srcAggToPort,
                           dstAggToPort, supportSerial, defaultMode, slotCheck, vlanGroupEnable,
                           multiGroupCheck, modeAbility);
}
