#include "common/scalar_names.h"

#include "wire/scalars.h"

namespace {

struct ScalarName {
    uint32_t id;
    const char* name;
};

// The readable ones; names are part of what scripts rely on.
constexpr ScalarName SCALARS[] = {
    {SCALAR_MODE, "mode"},
    {SCALAR_MAX_PORT_NUM, "max-ports"},
    {SCALAR_MAX_PORT_NUM_PER_GRP, "max-members"},
    {SCALAR_MAX_ISO_GRP_NUM, "max-groups"},
    {SCALAR_MAX_UNI_ISO_PORT_NUM, "max-targets"},
    {SCALAR_GRP_COUNT, "group-rows"},
    {SCALAR_GRP_POOL_FREE, "group-rows-free"},
    {SCALAR_INNER_COUNT, "inner-rows"},
    {SCALAR_PAIR_COUNT, "pair-rows"},
    {SCALAR_PAIR_POOL_FREE, "pair-rows-free"},
    {SCALAR_DEBUG_MASK, "debug-mask"},
    {SCALAR_VERSION, "version"},
    {SCALAR_MODE_ABILITY, "mode-ability"},
    {SCALAR_DEFAULT_MODE, "default-mode"},
    {SCALAR_P2P_ENABLE_VLAN, "pon-off-vlans"},
    {SCALAR_VLAN_GROUP_ENABLE, "vlan-group-enable"},
    {SCALAR_CAPABILITY, "capability"},
};

}  // namespace

std::vector<uint32_t> scalarIds() {
    std::vector<uint32_t> ids;
    for (const ScalarName& scalar : SCALARS) ids.push_back(scalar.id);
    return ids;
}

std::vector<std::string> scalarNames() {
    std::vector<std::string> names;
    for (const ScalarName& scalar : SCALARS) names.emplace_back(scalar.name);
    return names;
}

const char* knownScalarName(uint32_t id) {
    for (const ScalarName& scalar : SCALARS) {
        if (scalar.id == id) return scalar.name;
    }
    return nullptr;
}

std::string scalarName(uint32_t id) {
    const char* name = knownScalarName(id);
    return name != nullptr ? name : std::to_string(id);
}
