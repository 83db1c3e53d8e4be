// A policy of private VLANs as isolation groups and one-way pairs: a pure function of who is in which
// community, of what stood before, and of the limits. An isolated port is a community of its own; promiscuous
// ports need nothing and are none of these.
//
// What has to hold
//   A group isolates each two of its members. So no two ports of one community may share a group, and any two
//   of different communities have to share one: the groups cover the edges of a complete multipartite graph
//   with cliques. Two communities of a and b ports need a * b groups at least. Isolated ports are in whatever
//   group has room for them.
//
// Few rows
//   A port that comes joins the groups in which it meets most of those that it does not meet yet; then those
//   join it that one more row brings together with it; only then a new group is begun. A row of a group
//   covers one edge at least and mostly dozens, while a pair of ports takes two rows of pairs, so pairs are
//   for what the group numbers do not suffice for. They cannot hold within a VLAN.
//
// Stability comes before the last row
//   What stood before stays where it is as long as it is right: one more port adds rows and removes none, two
//   for each port that it is kept apart from at most, and a port that goes takes its own rows along. Only
//   ports that have changed their community lose rows.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

struct PolicyPort {
    uint32_t number = 0;
    uint32_t community = 0;  // equal numbers: the same one
};

struct PolicyLimits {
    std::vector<uint32_t> numbers{};  // of groups that it may use, in the order of taking them
    uint32_t portsPerGroup = UINT32_MAX;
    uint32_t pairsPerSource = UINT32_MAX;  // 0: no pairs
};

using PortPair = std::pair<uint32_t, uint32_t>;  // the smaller number first

struct PolicyRows {
    std::map<uint32_t, std::set<uint32_t>> groups{};  // members by number
    std::set<PortPair> pairs{};                       // isolated both ways by one-way pairs
    std::vector<PortPair> open{};                     // for which the limits do not suffice
};

PolicyRows coverPolicy(const std::vector<PolicyPort>& ports, const PolicyRows& former,
                       const PolicyLimits& limits);
