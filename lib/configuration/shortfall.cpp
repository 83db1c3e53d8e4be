#include "lib/configuration/shortfall.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "lib/text/output.h"

namespace {

const BoardInterface* portNamed(const std::map<std::string, const BoardInterface*>& ports,
                                const std::string& name) {
    const auto found = ports.find(name);
    return found != ports.end() ? found->second : nullptr;
}

}  // namespace

GroupScopes groupScopes(const std::vector<BoardInterface>& interfaces, const Configuration& configuration) {
    GroupScopes scopes;
    for (const auto& [row, active] : configuration.rows) {
        if (active && row.kind != ConfigKind::pair) scopes[row.member].insert(row.scope);
    }
    std::map<std::string, uint32_t> numbers;
    for (const BoardInterface& interface : interfaces) numbers[interface.name] = interface.number;
    for (const BoardInterface& interface : interfaces) {
        const auto trunk = numbers.find(interface.trunk);
        if (interface.trunk.empty() || trunk == numbers.end()) continue;
        const std::set<RowScope> ofTrunk = scopes[trunk->second];
        scopes[interface.number].insert(ofTrunk.begin(), ofTrunk.end());
    }
    return scopes;
}

std::set<RowScope> sharedScopes(const GroupScopes& scopes, uint32_t left, uint32_t right) {
    std::set<RowScope> shared;
    const auto one = scopes.find(left), other = scopes.find(right);
    if (one == scopes.end() || other == scopes.end()) return shared;
    std::set_intersection(one->second.begin(), one->second.end(), other->second.begin(), other->second.end(),
                          std::inserter(shared, shared.end()));
    return shared;
}

std::vector<Shortfall> findShortfalls(const std::vector<BoardInterface>& interfaces,
                                      const Configuration& configuration,
                                      const std::vector<PlaneEntry>& entries) {
    std::map<std::string, const BoardInterface*> ports;
    for (const BoardInterface& interface : interfaces) {
        if (!interface.device.empty()) ports.emplace(interface.device, &interface);
        ports.emplace(interface.name, &interface);
    }
    std::map<std::pair<std::string, std::string>, std::set<uint32_t>> held;
    for (const PlaneEntry& entry : entries) {
        if (entry.kind == PlaneEntryKind::twoWay) held[std::minmax(entry.from, entry.to)].insert(entry.vlan);
    }
    const GroupScopes scopes = groupScopes(interfaces, configuration);
    std::vector<Shortfall> found;
    for (const auto& entry : held) {
        const auto& names = entry.first;
        const std::set<uint32_t>& vlans = entry.second;
        const BoardInterface* left = portNamed(ports, names.first);
        const BoardInterface* right = portNamed(ports, names.second);
        if (vlans.contains(0) || left == nullptr || right == nullptr) continue;
        std::set<RowScope> wanted = sharedScopes(scopes, left->number, right->number);
        std::erase_if(wanted, [&](const RowScope& scope) { return vlans.contains(scope.vlan); });
        if (!wanted.empty()) found.push_back({names.first, names.second, vlans, wanted});
    }
    return found;
}

std::string shortfallText(const Shortfall& shortfall) {
    std::vector<std::string> vlans;
    for (const uint32_t vlan : shortfall.vlans) vlans.push_back(std::to_string(vlan));
    const RowScope& wanted = *shortfall.wanted.begin();
    return fmt::format(
        "{} and {} are isolated in VLAN {} only, since they were claimed there first; group {} asks for {}",
        shortfall.left, shortfall.right, joinChoices(vlans, "and"), wanted.number,
        wanted.vlan == 0 ? "every VLAN" : fmt::format("VLAN {}", wanted.vlan));
}
