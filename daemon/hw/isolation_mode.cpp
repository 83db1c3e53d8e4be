#include "daemon/hw/isolation_mode.h"

#include "platform/hardware.h"

int32_t portIsolateModePush(uint32_t* mode) {
    AttrSetRecord record = {};
    record.attrId = DAX_SCALAR_ISO_MODE;
    record.data = mode;
    record.flag = 1;
    return daxScalarSetApi(0, 0, &record);
}
