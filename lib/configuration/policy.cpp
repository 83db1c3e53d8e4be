#include "lib/configuration/policy.h"

#include <algorithm>

namespace {

// A group that a port meets less than this part of the others in is not worth its row at first: it would fill
// groups up that later ports need. 250 ports in 50 communities that come in any order, one at a time, are
// 5,400 rows in 177 groups so, and 12,900 in 262 without.
constexpr size_t WORTHWHILE = 3;

// Ports and communities count from 0 here; ports in the order in which they are given.
struct Group {
    uint32_t number = 0;
    std::vector<size_t> members{};
    std::vector<bool> communities{};  // that have a member
};

struct Cover {
    const std::vector<PolicyPort>& ports;
    const PolicyLimits& limits;
    std::vector<size_t> community;
    size_t communities = 0;
    std::vector<Group> groups{};
    std::vector<uint32_t> unused{};            // numbers, the next one last
    std::vector<std::vector<size_t>> seats{};  // groups by port
    std::vector<std::vector<bool>> apart{};    // ports that are kept apart
    std::vector<std::vector<bool>> paired{};   // those of them that pairs keep apart
    std::vector<uint32_t> pairCounts{};
    PolicyRows result{};
};

PortPair pairOf(const Cover& cover, size_t one, size_t other) {
    return std::minmax(cover.ports[one].number, cover.ports[other].number);
}

Cover makeCover(const std::vector<PolicyPort>& ports, const PolicyLimits& limits) {
    Cover cover{.ports = ports, .limits = limits, .community = {}};
    std::map<uint32_t, size_t> dense;
    for (const PolicyPort& port : ports) {
        cover.community.push_back(dense.emplace(port.community, dense.size()).first->second);
    }
    cover.communities = dense.size();
    cover.seats.resize(ports.size());
    cover.apart.assign(ports.size(), std::vector<bool>(ports.size()));
    cover.paired = cover.apart;
    cover.pairCounts.resize(ports.size());
    return cover;
}

// The daemon takes no pair of two members of a group.
bool fits(const Cover& cover, const Group& group, size_t port) {
    return !group.communities[cover.community[port]] && group.members.size() < cover.limits.portsPerGroup &&
           (cover.pairCounts[port] == 0 ||
            std::none_of(group.members.begin(), group.members.end(),
                         [&](size_t member) { return cover.paired[port][member]; }));
}

void join(Cover& cover, size_t at, size_t port) {
    Group& group = cover.groups[at];
    for (const size_t member : group.members) cover.apart[port][member] = cover.apart[member][port] = true;
    group.members.push_back(port);
    group.communities[cover.community[port]] = true;
    cover.seats[port].push_back(at);
}

size_t beginGroup(Cover& cover, uint32_t number) {
    cover.groups.push_back({.number = number, .communities = std::vector<bool>(cover.communities)});
    return cover.groups.size() - 1;
}

void keepApart(Cover& cover, size_t one, size_t other) {
    cover.apart[one][other] = cover.apart[other][one] = true;
    cover.paired[one][other] = cover.paired[other][one] = true;
    ++cover.pairCounts[one];
    ++cover.pairCounts[other];
    cover.result.pairs.insert(pairOf(cover, one, other));
}

bool pairFits(const Cover& cover, size_t one, size_t other) {
    return std::max(cover.pairCounts[one], cover.pairCounts[other]) < cover.limits.pairsPerSource;
}

using Ports = std::vector<size_t>;

// What stood before of those that are ports still.
struct Former {
    std::vector<std::pair<uint32_t, Ports>> groups{};  // of more than one port, by number
    std::vector<std::pair<size_t, size_t>> pairs{};
};

// Numbers that hold nothing are there to be used.
Former findFormer(Cover& cover, const PolicyRows& rows) {
    std::map<uint32_t, size_t> places;
    for (size_t port = 0; port < cover.ports.size(); ++port) places.emplace(cover.ports[port].number, port);
    Former former;
    for (const uint32_t number : cover.limits.numbers) {
        const auto group = rows.groups.find(number);
        Ports members;
        for (const uint32_t member : group != rows.groups.end() ? group->second : std::set<uint32_t>{}) {
            const auto place = places.find(member);
            if (place != places.end()) members.push_back(place->second);
        }
        if (members.size() > 1) {
            former.groups.emplace_back(number, members);
        } else {
            cover.unused.push_back(number);
        }
    }
    std::reverse(cover.unused.begin(), cover.unused.end());
    for (const auto& [left, right] : rows.pairs) {
        const auto one = places.find(left), other = places.find(right);
        if (one != places.end() && other != places.end()) {
            former.pairs.emplace_back(one->second, other->second);
        }
    }
    return former;
}

// For each port, how many it was kept apart from and must not be, or the other way round.
Ports countWrong(const Cover& cover, const Former& former) {
    std::vector<std::vector<bool>> met(cover.ports.size(), std::vector<bool>(cover.ports.size()));
    for (const auto& [one, other] : former.pairs) met[one][other] = met[other][one] = true;
    for (const auto& [number, members] : former.groups) {
        for (const size_t one : members) {
            for (const size_t other : members) met[one][other] = true;
        }
    }
    Ports wrong(cover.ports.size());
    for (size_t one = 0; one < wrong.size(); ++one) {
        for (size_t other = 0; other < wrong.size(); ++other) {
            const bool apart = cover.community[one] != cover.community[other];
            if (one != other && met[one][other] != apart) ++wrong[one];
        }
    }
    return wrong;
}

// Of those that share a group and must not, the one stays with which less is wrong: who has changed its
// community stands where he must not for all of the new one, and does not for all of the former.
void takeFormer(Cover& cover, const PolicyRows& rows) {
    Former former = findFormer(cover, rows);
    const Ports wrong = countWrong(cover, former);
    for (auto& [number, members] : former.groups) {
        std::stable_sort(members.begin(), members.end(),
                         [&](size_t left, size_t right) { return wrong[left] < wrong[right]; });
        const size_t group = beginGroup(cover, number);
        for (const size_t member : members) {
            if (fits(cover, cover.groups[group], member)) join(cover, group, member);
        }
    }
    for (const auto& [one, other] : former.pairs) {
        const bool wanted = cover.community[one] != cover.community[other] && !cover.apart[one][other];
        if (wanted && pairFits(cover, one, other)) keepApart(cover, one, other);
    }
}

void dropCovered(const Cover& cover, size_t port, Ports& others) {
    std::erase_if(others, [&](size_t other) { return cover.apart[port][other]; });
}

// Has the port join groups in which it meets `least` of the others or more, the best one first.
void joinOthers(Cover& cover, size_t port, Ports& others, size_t least) {
    while (!others.empty()) {
        std::vector<size_t> gains(cover.groups.size());
        for (const size_t other : others) {
            for (const size_t seat : cover.seats[other]) ++gains[seat];
        }
        size_t best = cover.groups.size();
        for (size_t group = 0; group < cover.groups.size(); ++group) {
            const size_t beaten = best == cover.groups.size() ? least - 1 : gains[best];
            if (gains[group] > beaten && fits(cover, cover.groups[group], port)) best = group;
        }
        if (best == cover.groups.size()) return;
        join(cover, best, port);
        dropCovered(cover, port, others);
    }
}

// Has others join the groups that the port is in.
void callOthers(Cover& cover, size_t port, Ports& others) {
    for (const size_t other : others) {
        for (const size_t group : Ports(cover.seats[port])) {
            if (cover.apart[port][other] || !fits(cover, cover.groups[group], other)) continue;
            join(cover, group, other);
        }
    }
    dropCovered(cover, port, others);
}

// False without a number that is left.
bool beginWith(Cover& cover, size_t port, Ports& others) {
    if (cover.unused.empty() || cover.limits.portsPerGroup < 2) return false;
    const size_t group = beginGroup(cover, cover.unused.back());
    cover.unused.pop_back();
    join(cover, group, port);
    for (const size_t other : others) {
        if (fits(cover, cover.groups[group], other)) join(cover, group, other);
    }
    dropCovered(cover, port, others);
    return true;
}

// Keeps a port apart from others that are in their groups already.
void coverPort(Cover& cover, size_t port, Ports others) {
    dropCovered(cover, port, others);
    while (!others.empty()) {
        joinOthers(cover, port, others, std::max<size_t>(2, others.size() / WORTHWHILE));
        callOthers(cover, port, others);
        joinOthers(cover, port, others, 1);
        if (!others.empty() && !beginWith(cover, port, others)) break;
    }
    for (const size_t other : others) {
        if (pairFits(cover, port, other)) {
            keepApart(cover, port, other);
        } else {
            cover.result.open.push_back(pairOf(cover, port, other));
        }
    }
}

}  // namespace

PolicyRows coverPolicy(const std::vector<PolicyPort>& ports, const PolicyRows& former,
                       const PolicyLimits& limits) {
    Cover cover = makeCover(ports, limits);
    takeFormer(cover, former);
    // Communities one after the other, those that have a place before those that come.
    Ports order(ports.size());
    for (size_t port = 0; port < order.size(); ++port) order[port] = port;
    std::stable_sort(order.begin(), order.end(), [&](size_t left, size_t right) {
        return std::pair(cover.seats[left].empty(), cover.community[left]) <
               std::pair(cover.seats[right].empty(), cover.community[right]);
    });
    Ports placed;
    for (const size_t port : order) {
        Ports others;
        for (const size_t other : placed) {
            if (cover.community[other] != cover.community[port]) others.push_back(other);
        }
        coverPort(cover, port, std::move(others));
        placed.push_back(port);
    }
    for (const Group& group : cover.groups) {
        if (group.members.size() < 2) continue;
        for (const size_t member : group.members) {
            cover.result.groups[group.number].insert(ports[member].number);
        }
    }
    return std::move(cover.result);
}
