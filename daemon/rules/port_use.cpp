#include "daemon/rules/port_use.h"

#include "daemon/base/report.h"
#include "daemon/hw/protocol.h"
#include "daemon/tables/ports.h"
#include "daemon/tables/serials.h"

void portUseBegin(uint32_t ifUnit, const char* operation, int32_t line) {
    if (portIsolatePortEntryGet(ifUnit) != nullptr) return;
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "[%s]line %d: ifunit %d first enable prot isolate!\r\n",
                     operation, line, ifUnit);
    portIsolateProtocolSet(ifUnit, DAX_IF_PROTO_ENABLE);
    portIsolatePortEntryAdd(ifUnit);
}

void portUseEnd(uint32_t ifUnit, const char* operation, int32_t line) {
    if (portIsolateIfIsFree(ifUnit) != 0) return;
    if (gPortIsoInfo.isSupportSerial != 0) portIsolateSerialFree(ifUnit);
    portIsolateProtocolSet(ifUnit, DAX_IF_PROTO_DISABLE);
    PortIsolatePortEntry* port = portIsolatePortEntryGet(ifUnit);
    if (port == nullptr) return;
    portIsolatePortEntryDel(port);
    portIsolateDebug(LEVEL_TRACE, CATEGORY_WORK, "[%s]line %d: ifunit %d del prot isolate!\r\n", operation,
                     line, ifUnit);
}
