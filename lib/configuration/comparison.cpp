#include "lib/configuration/comparison.h"

#include "common/bytes.h"
#include "lib/link/scalars.h"
#include "wire/scalars.h"

namespace {

constexpr int READINGS_MAX = 5;  // of boards that change all the time

// They stand in the options of a daemon, or follow from its hardware.
constexpr uint32_t SETTINGS[] = {
    SCALAR_MAX_PORT_NUM, SCALAR_MAX_PORT_NUM_PER_GRP, SCALAR_MAX_ISO_GRP_NUM,  SCALAR_MAX_UNI_ISO_PORT_NUM,
    SCALAR_MODE_ABILITY, SCALAR_DEFAULT_MODE,         SCALAR_VLAN_GROUP_ENABLE};

bool equal(const Configuration& left, const Configuration& right) {
    return left.mode == right.mode && left.rows == right.rows && left.ponOff == right.ponOff &&
           !spanDifferently(left, right);
}

std::string settingText(Session& session, uint32_t scalar) {
    const std::string bytes = readScalar(session, scalar);
    return portIsolateScalarIsBuffer(scalar) ? "0x" + hexText(bytes.data(), bytes.size())
                                             : std::to_string(wordAt(bytes, 0));
}

}  // namespace

bool sameConfiguration(const Comparison& comparison) {
    return equal(comparison.here, comparison.there);
}

bool sameBoards(const Comparison& comparison) {
    return comparison.settings.empty() && sameConfiguration(comparison);
}

Comparison compareBoards(Session& here, Session& there) {
    Comparison comparison;
    for (const uint32_t scalar : SETTINGS) {
        const SettingDifference setting = {scalar, settingText(here, scalar), settingText(there, scalar)};
        if (setting.here != setting.there) comparison.settings.push_back(setting);
    }
    for (int reading = 0; reading < READINGS_MAX; ++reading) {
        const Comparison before = comparison;
        comparison.here = readRunning(here);
        comparison.there = readRunning(there);
        if (sameConfiguration(comparison)) break;
        const bool stays = equal(before.here, comparison.here) && equal(before.there, comparison.there);
        if (reading > 0 && stays) break;
    }
    return comparison;
}
