#include "daemon/start/event_task.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "daemon/base/report.h"
#include "daemon/base/state.h"
#include "daemon/hw/isolation_mode.h"
#include "daemon/hw/serial_transfer.h"
#include "daemon/rules/lifecycle.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "platform/services.h"

namespace {

constexpr int32_t HEADER = sizeof(RtMsgHdr);

void pushMode() {
    const int32_t status = portIsolateModePush(&gPortIsoInfo.mode);
    if (status == 0) return;
    portIsolateDebug(LEVEL_EVENT, CATEGORY_EVENT, "set port-isolate mode failed.(%d,%d)\n\r",
                     gPortIsoInfo.mode, status);
}

void startCard(const uint8_t* message, uint32_t length) {
    RtCardInfo card;
    if (length < HEADER + sizeof(card)) return;
    std::memcpy(&card, message + HEADER, sizeof(card));
    portIsolateDebug(LEVEL_EVENT, CATEGORY_EVENT, "DAX_RTM_CARD_UP:%u/%u/%u\r\n", card.words[0],
                     card.words[1], card.words[2]);
    pushMode();
    portIsolateCardUpProcess();
    daxCardUpPcsSet(&card, DAX_PROTO_PORT_ISOLATE);
}

// Complete with its ifUnit: nothing behind that word is read.
void resetInterface(const uint8_t* message, uint32_t length) {
    constexpr uint32_t IF_UNIT = HEADER + offsetof(RtIfInfo, ifUnit);
    uint32_t ifUnit = 0;
    if (length < IF_UNIT + sizeof(ifUnit)) return;
    std::memcpy(&ifUnit, message + IF_UNIT, sizeof(ifUnit));
    portIsolateIfResetConfig(ifUnit);
}

// `remaining`: bytes from the message's start to the end of the datagram.
void handleMessage(const uint8_t* message, const RtMsgHdr& header, int32_t remaining) {
    switch (header.type) {
        case DAX_RTM_NEWLINK:
            portIsolateAddLinkProcess(message, remaining - HEADER);
            break;
        case DAX_RTM_DELLINK:
            portIsolateDelLinkProcess(message, remaining - HEADER);
            break;
        case DAX_RTM_CARD_UP:
            startCard(message, header.length);
            break;
        case DAX_RTM_MODE_REFRESH:
            pushMode();
            break;
        case DAX_RTM_SERIAL_SYNC:
            portIsolateSerialInfoSyncSend();
            break;
        case DAX_RTM_IF_RESET:
            resetInterface(message, header.length);
            break;
        case DAX_RTM_RESET:
            portIsolateResetConfig();
            break;
        default:
            break;
    }
}

}  // namespace

int32_t portIsolateEvtNotifyRecv(const void* buffer, int32_t bytes) {
    const uint8_t* message = static_cast<const uint8_t*>(buffer);
    int32_t remaining = bytes;
    while (remaining >= HEADER) {
        RtMsgHdr header;
        std::memcpy(&header, message, sizeof(header));
        if (header.length < sizeof(header) || header.length > static_cast<uint32_t>(remaining)) break;
        handleMessage(message, header, remaining);
        const uint32_t step = rtAligned(header.length);
        remaining -= static_cast<int32_t>(step);
        message += step;
    }
    return 0;
}

void portIsolateTask() {
    alignas(uint64_t) uint8_t buffer[RT_MSG_MAX] = {};
    int32_t highest = 0;
    for (;;) {
        const int32_t fd = gPortIsoInfo.rtSock;
        DaxFdSet readSet = {};
        daxFdSet(readSet, fd);
        if (fd > highest) highest = fd;
        if (dax_select(highest + 1, &readSet, nullptr, nullptr, nullptr) < 1) continue;
        if (!daxFdIsSet(readSet, fd)) continue;

        uint8_t source[DAX_ROUTE_ADDRESS_LEN];
        uint32_t sourceLen = sizeof(source);
        const int32_t bytes = dax_recvfrom(fd, buffer, sizeof(buffer), 0, source, &sourceLen);
        if (bytes <= 0) {
            std::perror("\n\r[portIsolate] recvfrom rtSock failed");
            continue;
        }
        silTakeSem(gPortIsoInfo.mutex, SIL_WAIT_FOREVER);
        portIsolateEvtNotifyRecv(buffer, bytes);
        silGiveSem(gPortIsoInfo.mutex);
    }
}
