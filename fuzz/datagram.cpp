// A datagram of the route socket, walked with all its handlers over rows of every table.
#include <cstring>
#include <vector>

#include "fuzz/fuzz.h"
#include "tests/daemon_driver.h"
#include "tests/invariants.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    stopAtFailedExpectations();
    // Two bits of the first byte choose the trunk-to-port switches, a third one serial numbers.
    const uint8_t modes = size == 0 ? 0 : bytes[0];
    Options options = trunkSwitches((modes & 1) != 0, (modes & 2) != 0);
    options["supportserial"] = (modes & 4) != 0 ? "t" : "f";
    startDaemon(options);
    for (const uint32_t unit : {1u, 2u, 100u}) groupJoin(unit, 5);
    for (const uint32_t unit : {3u, 200u}) groupJoin(unit, 6);
    vlanGroupJoin(6, 7, 10);
    pairJoin(4, 5);
    pairJoin(4, 200);
    ponSet(10, 2);
    // In a block of exactly its size, so that a read beyond the datagram is caught.
    if (size > 0) deliver(Bytes(bytes + 1, bytes + size));
    checkTables();
    return 0;
}
