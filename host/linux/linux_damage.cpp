#include "host/linux/linux_damage.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "common/files.h"
#include "host/services/logging.h"

namespace {

constexpr size_t DIFFERENCES_TOLD = 4;
constexpr size_t SPELL_HEALINGS = 10;
constexpr int64_t SPELL = 60 * 1000;  // milliseconds
// Where an element of each kind stands.
constexpr const char* KIND_SETS[] = {
    "pairs",      "vlan_pairs", "pairs",  "access",       "open_vlans", "span_members", "pairs",     "pairs",
    "vlan_ports", "tags",       "opened", "span_senders", "span_marks", "span_ports",   "span_open", "pairs"};
static_assert(std::size(KIND_SETS) == std::tuple_size_v<KindCounts>);

const char* setOf(const FilterElement& element) {
    return KIND_SETS[static_cast<size_t>(element.kind)];
}

std::string damageWords(const LinuxPlane& plane) {
    if (plane.damage == TableDamage::none) return {};
    const std::vector<std::string>& parts = plane.differences;
    if (plane.damage == TableDamage::gone) {
        return parts.front().substr(tablePart().size() + 1) + " from outside";
    }
    std::vector<std::string> words(
        parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(std::min(parts.size(), DIFFERENCES_TOLD)));
    if (words.size() < parts.size()) words.push_back(fmt::format("{} more", parts.size() - words.size()));
    if (!plane.lost.empty()) {
        words.push_back(fmt::format("{} elements were deleted, one of them from set {}", plane.lost.size(),
                                    setOf(*plane.lost.begin())));
    }
    if (!plane.intruders.empty()) {
        words.push_back(fmt::format("{} elements that open something were added, one of them to set {}",
                                    plane.intruders.size(), setOf(plane.intruders.front())));
    }
    return fmt::format("was changed from outside ({})", fmt::join(words, ", "));
}

bool opens(const FilterElement& element) {
    return element.kind == FilterKind::hairpin || element.kind == FilterKind::ponOff ||
           element.kind == FilterKind::opened || element.kind == FilterKind::carrier;
}

// Whether this one comes so soon after the others that it is not told.
bool noteTime(HealingState& healing) {
    const int64_t now = monotonicMs();
    healing.recent.push_back(now);
    if (healing.recent.size() > SPELL_HEALINGS) healing.recent.pop_front();
    const bool spell = healing.recent.size() == SPELL_HEALINGS && now - healing.recent.front() < SPELL;
    const bool told = !healing.spell || !spell;
    healing.spell = spell;
    return !told;
}

}  // namespace

void compareElements(LinuxPlane& plane, const FilterElements& former) {
    const bool heals = plane.healing.mode != Healing::off;
    // What an earlier run has left stays, too, until it is swept.
    const auto stays = [&](const FilterElement& element) {
        return plane.wanted.contains(element) || (heals && !isStrange(element));
    };
    for (const auto& [element, counter] : former) {
        if (!plane.held.contains(element) && stays(element)) plane.lost.insert(element);
    }
    std::erase_if(plane.lost, [&](const FilterElement& element) {
        return plane.held.contains(element) || !stays(element);
    });
    std::erase_if(plane.intruders, [&](const FilterElement& element) {
        return !plane.held.contains(element) || plane.wanted.contains(element);
    });
    if (plane.laid.empty() || plane.generation == 0) return;
    size_t strange = 0;
    for (const auto& [element, counter] : plane.held) {
        if (former.contains(element) || plane.wanted.contains(element)) continue;
        const bool intrudes = heals && opens(element);
        if (intrudes) plane.intruders.push_back(element);
        strange += intrudes ? 0 : 1;
    }
    if (strange == 0) return;
    hostReport(
        "{} elements were added to the kernel's filter table {} from outside: `portisolatectl plane "
        "sweep` removes them",
        strange, FILTER_TABLE);
}

void judgeTable(LinuxPlane& plane) {
    const bool whole = plane.differences.empty();
    const bool gone = !whole && plane.differences.front().starts_with(tablePart());
    const bool elements = !plane.lost.empty() || !plane.intruders.empty();
    plane.damage = gone       ? TableDamage::gone
                   : !whole   ? TableDamage::parts
                   : elements ? TableDamage::elements
                              : TableDamage::none;
}

void tellDamage(LinuxPlane& plane) {
    std::string text = damageWords(plane);
    if (text.empty() && !plane.damageText.empty()) {
        hostReport("the kernel's filter table {} is whole again", FILTER_TABLE);
    } else if (text != plane.damageText) {
        hostReport(
            "the kernel's filter table {} {}: what it isolated may be open until `portisolatectl plane "
            "restore`",
            FILTER_TABLE, text);
    }
    plane.damageText = std::move(text);
}

Damage damageOf(const LinuxPlane& plane) {
    return {damageWords(plane), plane.differences.size() + plane.lost.size() + plane.intruders.size()};
}

void tellHealed(LinuxPlane& plane, const Damage& before) {
    HealingState& healing = plane.healing;
    ++healing.count;
    const std::string by = healing.by.empty() ? "" : fmt::format(" by {}", healing.by);
    healing.by.clear();
    plane.damageText.clear();
    if (noteTime(healing)) {
        ++healing.untold;
        return;
    }
    const uint64_t untold = std::exchange(healing.untold, 0);
    if (untold != 0) {
        hostReport("the kernel's filter table {} was healed {} times more", FILTER_TABLE, untold);
    }
    hostReport("the kernel's filter table {} {}{}: healed, {} parts and elements were put right",
               FILTER_TABLE, before.text, by, before.parts);
    if (!healing.spell) return;
    hostReport(
        "the kernel's filter table {} was changed from outside {} times within a minute: it goes on being "
        "healed, without a line for each time",
        FILTER_TABLE, SPELL_HEALINGS);
}
