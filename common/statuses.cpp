#include "common/statuses.h"

#include <fmt/format.h>

#include <cstring>

#include "wire/framing.h"
#include "wire/status.h"

namespace {

constexpr char UNKNOWN[] = "unknown status";
constexpr int32_t KERNEL_STATUS_MAX = 133;

struct StatusText {
    int32_t status;
    const char* text;
};

constexpr StatusText STATUS_TEXTS[] = {
    {STATUS_OK, "success"},
    {STATUS_FAILED, "failed: a look-up failed or a local resource ran out"},
    {STATUS_NULL_ARGUMENT, "null argument: the index or the value is missing"},
    {STATUS_BUFFER_TOO_SMALL, "the buffer is too small for the value"},
    {STATUS_POOL_EXHAUSTED, "table full: no entry is left in the pool"},
    {STATUS_NOT_FOUND, "not found: there is no such entry, or its table is full"},
    {STATUS_NOT_SUPPORTED, "not supported: no such column, scalar or row status, or a basic rule is broken"},
    {STATUS_BAD_BUFFER, "bad buffer: none was offered, or it is too small"},
    {STATUS_BAD_VLAN, "bad VLAN id: 1 to 4095 are valid"},
    {STATUS_PAIR_IN_GROUP, "a one-way pair connects the interface with a member of the group"},
    {STATUS_GROUP_FULL, "limit reached: the group has all members, or the source all pairs, it may have"},
    {STATUS_PAIR_SHARES_GROUP, "source and target of the pair share an isolation group"},
    {STATUS_ABILITY_ONE_GROUP, "the interface is in another group, and its hardware allows only one"},
    {STATUS_MODE_IN_USE, "the mode cannot change while isolations are configured"},
    {STATUS_PAIR_NOT_IN_MODE, "one-way isolation to this target does not exist in mode 1"},
    {STATUS_GROUP_OTHER_VLAN, "the group number is in use with another VLAN"},
    {STATUS_NUMBER_IS_GROUP, "the group number is in use by a group without a VLAN"},
    {STATUS_NUMBER_IS_VLAN_GROUP, "the group number is in use by a VLAN group"},
    {STATUS_OTHER_SLOT, "the interface is in another slot than the group's members"},
    {STATUS_OTHER_GROUP, "the interface is in another group, and only one is allowed"},
    {STATUS_NO_HANDLER, "no such operation"},
    {STATUS_BAD_FRAME, "malformed request: its lengths do not add up"},
    {STATUS_BAD_LENGTH, "malformed request: the index or the value has the wrong size"},
    {STATUS_PEER_FAILED, "the peer board broke off or took too long"},
    {STATUS_TOO_MANY_CLIENTS, "too many clients are connected: try again later"},
    {STATUS_READ_ONLY, "this user may read and not change: only the group portisolate may"},
};

}  // namespace

const char* statusText(int32_t status) {
    for (const StatusText& known : STATUS_TEXTS) {
        if (known.status == status) return known.text;
    }
    return UNKNOWN;
}

std::string statusCode(int32_t status) {
    return fmt::format("0x{:08X}", static_cast<uint32_t>(status));
}

std::string describeStatus(int32_t status) {
    // A forwarding plane in the kernel hands on the kernel's own number.
    const bool known = std::strcmp(statusText(status), UNKNOWN) != 0;
    if (!known && status > 0 && status <= KERNEL_STATUS_MAX) {
        return statusCode(status) + ": the kernel says: " + std::strerror(status);
    }
    return statusCode(status) + ": " + statusText(status);
}
