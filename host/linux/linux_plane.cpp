#include "host/linux/linux_plane.h"

#ifdef PORTISOLATE_NETFILTER

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "common/text.h"
#include "host/linux/nft_sets.h"
#include "host/planes/plane_entries.h"
#include "host/services/logging.h"
#include "wire/statuses.h"

namespace {
constexpr size_t TRANSACTION_ELEMENTS = 1000;  // what a socket's buffer takes at once

using Wanted = std::unordered_map<FilterElement, uint32_t, FilterElementHash>;

struct LinuxPlane {
    Filter filter;
    int failure = ENOTCONN;  // 0 once the table was laid; else why it could not be
    std::string failureText = "the plane was not started";
    std::map<std::string, std::string> notes;

    // What was asked for, and the elements that make it up, each with how often it is needed.
    PlaneEntries twoWay;
    PlaneEntries oneWay;
    std::unordered_map<uint32_t, std::string> devices;  // by interface
    std::set<std::string> access;
    std::set<uint16_t> ponOff;
    EgressVlans egress;
    bool egressKnown = false;  // until then what an earlier run knew is in force
    Wanted wanted;

    // What the kernel held when the filter was at this generation. A later one means that somebody else has
    // changed the filter, this table or another.
    FilterElements held;
    uint32_t generation = 0;
    uint32_t watched = 0;  // generation that was looked at last
    const char* damage = nullptr;
    FilterCounter pon = {};

    uint64_t accepted = 0;
    uint64_t refused = 0;
};

struct Change {
    std::vector<FilterElement> add;
    std::vector<FilterElement> del;
};

LinuxPlane& linuxPlane(void* state) {
    return *static_cast<LinuxPlane*>(state);
}

std::string_view textOf(const std::array<char, FILTER_DEVICE_SIZE>& device) {
    return {device.data(), strnlen(device.data(), device.size())};
}

// An element that is there already is added again, too: that changes nothing, and holds where somebody else
// has taken it away unseen.
void want(LinuxPlane& plane, const FilterElement& element, Change& change) {
    if (++plane.wanted[element] == 1) change.add.push_back(element);
}

void unwant(LinuxPlane& plane, const FilterElement& element, Change& change) {
    const auto found = plane.wanted.find(element);
    if (found == plane.wanted.end() || --found->second > 0) return;
    plane.wanted.erase(found);
    if (plane.held.contains(element)) change.del.push_back(element);
}

void tellDamage(LinuxPlane& plane, const char* damage) {
    if (damage != nullptr && plane.damage == nullptr)
        hostReport(
            "the kernel's filter table %s %s: what it isolated may be open until `portisolatectl plane "
            "restore`",
            FILTER_TABLE, damage);
    else if (damage == nullptr && plane.damage != nullptr)
        hostReport("the kernel's filter table %s is whole again", FILTER_TABLE);
    plane.damage = damage;
}

int lookAtTable(LinuxPlane& plane) {
    const char* damage = nullptr;
    const int problem = inspectTable(plane.filter, damage, plane.pon);
    if (problem == 0) tellDamage(plane, damage);
    return problem;
}

// Reads anew what the kernel holds.
int refresh(LinuxPlane& plane) {
    uint32_t generation = 0;
    int problem = readGeneration(plane.filter, generation);
    if (problem == 0) problem = lookAtTable(plane);
    if (problem == 0) problem = readElements(plane.filter, plane.held);
    if (problem != 0 && problem != ENOENT) return problem;
    plane.generation = plane.watched = generation;
    return 0;
}

int refreshIfChanged(LinuxPlane& plane) {
    uint32_t generation = 0;
    const int problem = readGeneration(plane.filter, generation);
    if (problem != 0 || generation == plane.generation) return problem;
    return refresh(plane);
}

int commit(LinuxPlane& plane, const Change& change) {
    if (plane.failure != 0) return plane.failure;
    if (change.add.empty() && change.del.empty()) return 0;
    const int problem = changeElements(plane.filter, change.add, change.del);
    if (problem != 0) {
        refresh(plane);
        return problem;
    }
    bool news = !change.del.empty();
    for (const FilterElement& element : change.add) news |= plane.held.try_emplace(element).second;
    for (const FilterElement& element : change.del) plane.held.erase(element);
    // To the kernel, what adds only what is there already is no transaction.
    if (!news) return 0;
    plane.watched += plane.watched == plane.generation ? 1 : 0;
    plane.generation++;
    return 0;
}

int32_t counted(LinuxPlane& plane, int32_t status) {
    (status == 0 ? plane.accepted : plane.refused)++;
    return status;
}

// The one VLAN of all that leaves a device untagged; 0: there are several, or none is known.
uint16_t soleEgress(const LinuxPlane& plane, const std::string& device) {
    const auto egress = plane.egress.find(device);
    return egress == plane.egress.end() || egress->second.size() != 1 ? 0 : egress->second.front();
}

bool contains(const std::vector<uint16_t>& vlans, uint32_t vid) {
    return std::find(vlans.begin(), vlans.end(), vid) != vlans.end();
}

bool allOff(const std::set<uint16_t>& ponOff, const std::vector<uint16_t>& vlans) {
    return std::all_of(vlans.begin(), vlans.end(), [&](uint16_t vid) { return ponOff.contains(vid); });
}

void appendDirection(const LinuxPlane& plane, const std::string& src, const std::string& dst, uint16_t vid,
                     std::vector<FilterElement>& elements) {
    elements.push_back(filterElement(vid == 0 ? FilterSet::bi : FilterSet::biVlan, src, dst, vid));
    if (vid != 0 && soleEgress(plane, dst) == vid)
        elements.push_back(filterElement(FilterSet::biEgress, src, dst, 0));
}

std::vector<FilterElement> elementsOf(const LinuxPlane& plane, PortPair pair, const uint16_t* twoWayVid) {
    const std::string& src = plane.devices.at(sourceOf(pair));
    const std::string& dst = plane.devices.at(targetOf(pair));
    if (twoWayVid == nullptr) return {filterElement(FilterSet::uni, src, dst, 0)};
    std::vector<FilterElement> elements;
    appendDirection(plane, src, dst, *twoWayVid, elements);
    appendDirection(plane, dst, src, *twoWayVid, elements);
    return elements;
}

FilterElement deviceElement(FilterSet set, const std::string& device) {
    return filterElement(set, device, "", 0);
}

FilterElement ponOffElement(uint32_t vid) {
    return filterElement(FilterSet::ponOff, "", "", static_cast<uint16_t>(vid));
}

// Everything that was asked for, from the records.
Wanted allWanted(const LinuxPlane& plane) {
    Wanted wanted;
    const auto take = [&](const std::vector<FilterElement>& elements) {
        for (const FilterElement& element : elements) wanted[element]++;
    };
    for (const auto& [pair, isolation] : plane.twoWay) take(elementsOf(plane, pair, &isolation.vid));
    for (const auto& [pair, isolation] : plane.oneWay) take(elementsOf(plane, pair, nullptr));
    for (const std::string& device : plane.access) take({deviceElement(FilterSet::access, device)});
    for (const uint16_t vid : plane.ponOff) take({ponOffElement(vid)});
    for (const auto& [device, vlans] : plane.egress) {
        if (vlans.size() == 1) take({deviceElement(FilterSet::egress, device)});
        if (allOff(plane.ponOff, vlans)) take({deviceElement(FilterSet::egressOff, device)});
    }
    return wanted;
}

// Transactions of a size that a socket takes; `changed` counts what they did.
int32_t commitAll(LinuxPlane& plane, bool add, const std::vector<FilterElement>& elements,
                  uint64_t& changed) {
    for (size_t at = 0; at < elements.size(); at += TRANSACTION_ELEMENTS) {
        const auto begin = elements.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = elements.begin() +
                         static_cast<std::ptrdiff_t>(std::min(elements.size(), at + TRANSACTION_ELEMENTS));
        Change change;
        (add ? change.add : change.del).assign(begin, end);
        const int problem = commit(plane, change);
        if (problem != 0) return problem;
        changed += static_cast<uint64_t>(end - begin);
    }
    return 0;
}

// Brings the kernel to what the records say, additions first. What is left over stays, but for what the ports
// are: that is the description's and the bridge's to say, whatever an earlier run has left.
int32_t settle(LinuxPlane& plane) {
    Wanted wanted = allWanted(plane);
    std::vector<FilterElement> add;
    std::vector<FilterElement> del;
    for (const auto& [element, uses] : wanted) {
        if (!plane.held.contains(element)) add.push_back(element);
    }
    for (const auto& [element, counter] : plane.held) {
        const bool ours =
            element.set == FilterSet::access || (element.set == FilterSet::egress && plane.egressKnown);
        if (!wanted.contains(element) && (ours || plane.wanted.contains(element))) del.push_back(element);
    }
    plane.wanted = std::move(wanted);
    uint64_t changed = 0;
    const int32_t added = commitAll(plane, true, add, changed);
    const int32_t removed = commitAll(plane, false, del, changed);
    return added != 0 ? added : removed;
}

// The device of an interface that is, or may be, part of entries.
int32_t setDevice(LinuxPlane& plane, uint32_t ifUnit, const std::string& device) {
    const auto [known, added] = plane.devices.try_emplace(ifUnit, device);
    if (added || known->second == device) return 0;
    known->second = device;
    return settle(plane);
}

// The daemon must not rely on an isolation that the kernel cannot keep. A one-way isolation towards a trunk
// is commanded for each of its member ports, and holds for the trunk.
int32_t refusal(bool twoWay, const PlanePort& src, const PlanePort& dst) {
    for (const PlanePort* port : {&src, &dst}) {
        if (strlen(port->device) >= FILTER_DEVICE_SIZE) {
            hostReport("%s is not isolated: no device of the kernel has so long a name", port->device);
            return ENAMETOOLONG;
        }
        const bool trunkKnown = !twoWay && port == &dst && *port->trunkDevice != '\0';
        if (!port->trunkMember || trunkKnown) continue;
        hostReport("%s is a member port of a trunk and cannot be isolated by itself: isolate the trunk",
                   port->name);
        return EBUSY;
    }
    if (src.ifUnit != dst.ifUnit && *src.switchId != '\0' && strcmp(src.switchId, dst.switchId) == 0) {
        hostReport("%s and %s are not isolated: their switch chip forwards between them without the kernel",
                   src.name, dst.name);
        return EOPNOTSUPP;
    }
    return 0;
}

// Adds the elements of `now` and takes away those of `before`.
int32_t exchange(LinuxPlane& plane, const std::vector<FilterElement>& now,
                 const std::vector<FilterElement>& before) {
    Change change;
    for (const FilterElement& element : now) want(plane, element, change);
    for (const FilterElement& element : before) unwant(plane, element, change);
    return commit(plane, change);
}

int32_t addEntry(LinuxPlane& plane, bool twoWay, const PlanePort& src, const PlanePort& dst,
                 const PlaneIsolation& isolation) {
    const int32_t refused = refusal(twoWay, src, dst);
    if (refused != 0) return refused;
    setDevice(plane, src.ifUnit, src.device);
    setDevice(plane, dst.ifUnit, dst.trunkMember ? dst.trunkDevice : dst.device);
    PlaneEntries& entries = twoWay ? plane.twoWay : plane.oneWay;
    const PortPair pair = pairOf(src.ifUnit, dst.ifUnit);
    const auto former = entries.find(pair);
    const auto now = elementsOf(plane, pair, twoWay ? &isolation.vid : nullptr);
    std::vector<FilterElement> before;
    if (former != entries.end()) before = elementsOf(plane, pair, twoWay ? &former->second.vid : nullptr);

    const int32_t problem = exchange(plane, now, before);
    // The daemon keeps a one-way pair whose isolation was refused: it stays asked for, and is missing.
    if (problem == 0 || !twoWay) {
        entries[pair] = isolation;
        return problem;
    }
    Change undone;
    for (const FilterElement& element : before) want(plane, element, undone);
    for (const FilterElement& element : now) unwant(plane, element, undone);
    return problem;
}

// The entry goes even when the kernel refuses: nobody will ask for its release again. What the kernel then
// still holds is left over.
int32_t deleteEntry(LinuxPlane& plane, PlaneEntries& entries, PlaneEntries::const_iterator entry,
                    bool twoWay) {
    if (entry == entries.end()) return HOST_STATUS_NOT_FOUND;
    Change change;
    for (const FilterElement& element :
         elementsOf(plane, entry->first, twoWay ? &entry->second.vid : nullptr))
        unwant(plane, element, change);
    entries.erase(entry);
    return commit(plane, change);
}

int32_t addTwoWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    LinuxPlane& plane = linuxPlane(state);
    return counted(plane, addEntry(plane, true, src, dst, isolation));
}

int32_t deleteTwoWay(void* state, uint32_t src, uint32_t dst) {
    LinuxPlane& plane = linuxPlane(state);
    return counted(plane, deleteEntry(plane, plane.twoWay, findTwoWay(plane.twoWay, src, dst), true));
}

int32_t addOneWay(void* state, const PlanePort& src, const PlanePort& dst, const PlaneIsolation& isolation) {
    LinuxPlane& plane = linuxPlane(state);
    return counted(plane, addEntry(plane, false, src, dst, isolation));
}

int32_t deleteOneWay(void* state, uint32_t src, uint32_t dst) {
    LinuxPlane& plane = linuxPlane(state);
    return counted(plane, deleteEntry(plane, plane.oneWay, plane.oneWay.find(pairOf(src, dst)), false));
}

// The kernel has no cards: a VLAN is switched as a whole.
int32_t setPon(void* state, uint32_t vid, bool isolate, const std::set<uint32_t>&) {
    LinuxPlane& plane = linuxPlane(state);
    std::vector<FilterElement> elements = {ponOffElement(vid)};
    std::set<uint16_t> ponOff = plane.ponOff;
    ponOff.insert(static_cast<uint16_t>(vid));
    for (const auto& [device, vlans] : plane.egress) {
        if (contains(vlans, vid) && (isolate || allOff(ponOff, vlans)))
            elements.push_back(deviceElement(FilterSet::egressOff, device));
    }
    Change change;
    for (const FilterElement& element : elements) {
        if (!isolate)
            change.add.push_back(element);
        else if (plane.held.contains(element))
            change.del.push_back(element);
    }
    const int problem = commit(plane, change);
    if (problem == 0 && !isolate) plane.ponOff = ponOff;
    // As with a delete that is refused: what is still held is left over.
    if (isolate) plane.ponOff.erase(static_cast<uint16_t>(vid));
    for (const FilterElement& element : elements) {
        if (isolate)
            plane.wanted.erase(element);
        else if (problem == 0)
            plane.wanted[element] = 1;
    }
    return counted(plane, problem);
}

void freshCard(void*, uint32_t) {}

bool holds(const LinuxPlane& plane, FilterSet set, const char* src, const char* dst, uint32_t vid) {
    return plane.held.contains(filterElement(set, src, dst, static_cast<uint16_t>(vid)));
}

// Why the kernel would drop it, by what it holds; empty when it would not.
std::string causeOf(const LinuxPlane& plane, const PlanePort& src, const PlanePort& dst, uint32_t vid) {
    std::string cause;
    const bool inVlan = vid != 0 && holds(plane, FilterSet::biVlan, src.device, dst.device, vid);
    if (inVlan || holds(plane, FilterSet::bi, src.device, dst.device, 0)) {
        const uint16_t scope = inVlan && !holds(plane, FilterSet::bi, src.device, dst.device, 0)
                                   ? static_cast<uint16_t>(vid)
                                   : 0;
        for (const PortPair pair : {pairOf(src.ifUnit, dst.ifUnit), pairOf(dst.ifUnit, src.ifUnit)}) {
            const auto entry = plane.twoWay.find(pair);
            if (entry == plane.twoWay.end() || entry->second.vid != scope || !cause.empty()) continue;
            describeTwoWay(entry->second, cause);
        }
        if (cause.empty()) cause = "two-way isolation, left over from an earlier run";
    } else if (holds(plane, FilterSet::uni, src.device, dst.device, 0)) {
        cause = plane.oneWay.contains(pairOf(src.ifUnit, dst.ifUnit))
                    ? "one-way isolation"
                    : "one-way isolation, left over from an earlier run";
    } else if (vid != 0 && holds(plane, FilterSet::access, src.device, "", 0) &&
               holds(plane, FilterSet::access, dst.device, "", 0) &&
               !plane.held.contains(ponOffElement(vid))) {
        appendFormat(cause, "PON isolation in VLAN %" PRIu32, vid);
    }
    return cause;
}

bool forwards(void* state, const PlanePort& src, const PlanePort& dst, uint32_t vid, std::string& reason) {
    LinuxPlane& plane = linuxPlane(state);
    if (plane.failure != 0 || refreshIfChanged(plane) != 0 || plane.damage != nullptr) return true;
    const std::string cause = causeOf(plane, src, dst, vid);
    if (cause.empty()) return true;
    appendFormat(reason, "%s to %s: %s", src.name, dst.name, cause.c_str());
    return false;
}

void list(void* state, std::string& text) {
    const LinuxPlane& plane = linuxPlane(state);
    listEntries(plane.twoWay, plane.oneWay, text);
    for (const uint16_t vid : plane.ponOff) appendFormat(text, "pon-off %u slots=-\n", vid);
}

PlaneCounters counters(void* state) {
    const LinuxPlane& plane = linuxPlane(state);
    return {plane.twoWay.size(), plane.oneWay.size(), plane.ponOff.size(), plane.accepted, plane.refused};
}

// The pair's element for frames that leave untagged belongs to the one that its VLAN has.
bool egressTwin(const LinuxPlane& plane, const FilterElement& element, FilterElement& twin) {
    twin = filterElement(FilterSet::biEgress, textOf(element.src), textOf(element.dst), 0);
    return element.set == FilterSet::biVlan &&
           soleEgress(plane, std::string(textOf(element.dst))) == element.vid;
}

void inspectElement(const LinuxPlane& plane, const FilterElement& element, std::string& text) {
    constexpr const char* KINDS[] = {"bi", "bi", "bi", "uni", "pon", "pon-off"};
    const auto device = [](const auto& name) {
        return name[0] == '\0' ? std::string("-") : printable(textOf(name));
    };
    const auto held = plane.held.find(element);
    bool missing = held == plane.held.end();
    FilterCounter counter = missing ? FilterCounter{} : held->second;
    FilterElement twin = {};
    if (egressTwin(plane, element, twin)) {
        const auto also = plane.held.find(twin);
        missing |= also == plane.held.end() && plane.wanted.contains(twin);
        if (also != plane.held.end())
            counter = {counter.packets + also->second.packets, counter.bytes + also->second.bytes};
    }
    appendFormat(text, "entry kind=%s src=%s dst=%s vlan=%s state=%s",
                 KINDS[static_cast<size_t>(element.set)], device(element.src).c_str(),
                 device(element.dst).c_str(), element.vid == 0 ? "-" : std::to_string(element.vid).c_str(),
                 missing                          ? "missing"
                 : plane.wanted.contains(element) ? "held"
                                                  : "left-over");
    if (!missing && element.set <= FilterSet::uni)
        appendFormat(text, " packets=%" PRIu64 " bytes=%" PRIu64 "\n", counter.packets, counter.bytes);
    else
        text += " packets=- bytes=-\n";
}

// What follows from other elements and the ports' VLANs is no entry of its own.
bool isEntry(const LinuxPlane& plane, const FilterElement& element) {
    if (element.set == FilterSet::egress || element.set == FilterSet::egressOff) return false;
    return element.set != FilterSet::biEgress ||
           !(plane.wanted.contains(element) || soleEgress(plane, std::string(textOf(element.dst))) != 0);
}

std::vector<FilterElement> sortedElements(const LinuxPlane& plane) {
    std::vector<FilterElement> elements;
    for (const auto& [element, counter] : plane.held) {
        if (isEntry(plane, element)) elements.push_back(element);
    }
    for (const auto& [element, uses] : plane.wanted) {
        if (isEntry(plane, element) && !plane.held.contains(element)) elements.push_back(element);
    }
    std::sort(elements.begin(), elements.end(), [](const FilterElement& a, const FilterElement& b) {
        return std::tie(a.set, a.src, a.dst, a.vid) < std::tie(b.set, b.src, b.dst, b.vid);
    });
    return elements;
}

void inspectElements(const LinuxPlane& plane, std::string& text) {
    bool access = false;
    for (const FilterElement& element : sortedElements(plane)) {
        if (element.set == FilterSet::access && !access && plane.damage == nullptr)
            appendFormat(
                text, "entry kind=pon src=- dst=- vlan=- state=held packets=%" PRIu64 " bytes=%" PRIu64 "\n",
                plane.pon.packets, plane.pon.bytes);
        access |= element.set == FilterSet::access;
        inspectElement(plane, element, text);
    }
}

void inspect(void* state, std::string& text) {
    LinuxPlane& plane = linuxPlane(state);
    const int problem = plane.failure != 0 ? plane.failure : refresh(plane);
    text += "plane name=linux state=";
    text += problem != 0 ? "failed\n" : plane.damage != nullptr ? "gone\n" : "ready\n";
    if (problem != 0)
        text += "note " +
                (plane.failure != 0 ? plane.failureText
                                    : "the kernel did not answer: " + std::string(strerror(problem))) +
                "\n";
    else if (plane.damage != nullptr)
        appendFormat(text, "note the kernel's filter table %s %s\n", FILTER_TABLE, plane.damage);
    for (const auto& [key, sentence] : plane.notes) text += "note " + printable(sentence) + "\n";
    if (problem == 0) inspectElements(plane, text);
}

int32_t sweep(void* state, uint64_t& changed) {
    LinuxPlane& plane = linuxPlane(state);
    changed = 0;
    const int problem = plane.failure != 0 ? plane.failure : refresh(plane);
    if (problem != 0) return problem;
    std::vector<FilterElement> leftOver;
    for (const auto& [element, counter] : plane.held) {
        if (!plane.wanted.contains(element)) leftOver.push_back(element);
    }
    return commitAll(plane, false, leftOver, changed);
}

int32_t restore(void* state, uint64_t& changed) {
    LinuxPlane& plane = linuxPlane(state);
    changed = 0;
    int problem = plane.failure != 0 ? plane.failure : layTable(plane.filter);
    if (problem == 0) problem = refresh(plane);
    if (problem != 0) return problem;
    std::vector<FilterElement> missing;
    for (const auto& [element, uses] : plane.wanted) {
        if (!plane.held.contains(element)) missing.push_back(element);
    }
    return commitAll(plane, true, missing, changed);
}

void destroy(void* state) {
    LinuxPlane* plane = &linuxPlane(state);
    closeFilter(plane->filter);
    delete plane;
}

std::string failureSentence(int problem) {
    const std::string consequence = ": every isolation will be refused";
    if (problem == EPERM || problem == EACCES)
        return "no permission to change the kernel's packet filter, the capability CAP_NET_ADMIN is needed" +
               consequence;
    if (problem == EPROTONOSUPPORT || problem == EAFNOSUPPORT || problem == EOPNOTSUPP || problem == ENOENT)
        return "the kernel has no packet filter for bridges (nf_tables with its bridge family)" + consequence;
    return "the kernel's packet filter refused the table " + std::string(FILTER_TABLE) + ", " +
           strerror(problem) + consequence;
}

void tellStart(LinuxPlane& plane) {
    size_t leftOver = 0;
    for (const auto& [element, counter] : plane.held)
        leftOver += plane.wanted.contains(element) || !isEntry(plane, element) ? 0 : 1;
    if (leftOver > 0)
        hostReport(
            "%zu elements of an earlier run are kept in the kernel's filter table %s until they are asked "
            "for again or swept: `portisolatectl plane sweep`",
            leftOver, FILTER_TABLE);
    if (plane.filter.seesPvid) return;
    plane.notes["pvid"] =
        "this kernel does not tell by which VLAN untagged frames came in (nft_meta_bridge): what holds "
        "within a VLAN holds tagged frames, and untagged ones where they leave by a port with one untagged "
        "VLAN";
    hostReport("%s", plane.notes["pvid"].c_str());
}
}  // namespace

Plane createLinuxPlane() {
    return {"linux",   new LinuxPlane, destroy, addTwoWay, deleteTwoWay, addOneWay, deleteOneWay, setPon,
            freshCard, forwards,       list,    counters,  inspect,      sweep,     restore};
}

std::string startLinuxPlane(const Plane& handle, const std::set<std::string>& accessDevices) {
    LinuxPlane& plane = linuxPlane(handle.state);
    plane.failure = openFilter(plane.filter);
    if (plane.failure == 0) plane.failure = layTable(plane.filter);
    if (plane.failure == 0) plane.failure = refresh(plane);
    plane.access = accessDevices;
    if (plane.failure == 0) plane.failure = settle(plane);
    plane.failureText = plane.failure == 0 ? "" : failureSentence(plane.failure);
    if (plane.failure == 0) tellStart(plane);
    return plane.failureText;
}

int32_t renameLinuxPort(const Plane& handle, uint32_t ifUnit, const std::string& device) {
    LinuxPlane& plane = linuxPlane(handle.state);
    return plane.devices.contains(ifUnit) ? setDevice(plane, ifUnit, device) : 0;
}

void setLinuxEgress(const Plane& handle, const EgressVlans& vlans) {
    LinuxPlane& plane = linuxPlane(handle.state);
    if (plane.failure != 0 || (plane.egressKnown && plane.egress == vlans)) return;
    plane.egressKnown = true;
    plane.egress = vlans;
    const int problem = settle(plane);
    if (problem != 0)
        hostReport("the VLANs that leave the bridge untagged are not known to the filter: %s",
                   strerror(problem));
}

void watchLinuxTable(const Plane& handle) {
    LinuxPlane& plane = linuxPlane(handle.state);
    uint32_t generation = 0;
    if (plane.failure != 0 || readGeneration(plane.filter, generation) != 0 || generation == plane.watched)
        return;
    if (lookAtTable(plane) == 0) plane.watched = generation;
}

void setLinuxNote(const Plane& handle, const std::string& key, const std::string& sentence) {
    auto& notes = linuxPlane(handle.state).notes;
    if (sentence.empty())
        notes.erase(key);
    else
        notes[key] = sentence;
}

#else

Plane createLinuxPlane() {
    return {};
}

std::string startLinuxPlane(const Plane&, const std::set<std::string>&) {
    return "this daemon was built without the Linux plane";
}

int32_t renameLinuxPort(const Plane&, uint32_t, const std::string&) {
    return 0;
}

void setLinuxEgress(const Plane&, const EgressVlans&) {}

void watchLinuxTable(const Plane&) {}

void setLinuxNote(const Plane&, const std::string&, const std::string&) {}

#endif
