#include "host/linux/kernel_links.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "common/bytes.h"

namespace {

constexpr size_t DATAGRAM_MAX = 64 * 1024;
constexpr int RECEIVE_BUFFER = 8 * 1024 * 1024;  // bytes, some thousand messages
constexpr int BATCH_MAX = 1024;                  // datagrams taken at once
constexpr int DUMP_ATTEMPTS = 16;  // devices that come and go meanwhile make a dump inconsistent

template <size_t Count>
using Attributes = std::array<const nlattr*, Count>;

template <size_t Count>
int keepAttribute(const nlattr* attribute, void* data) {
    const uint16_t type = mnl_attr_get_type(attribute);
    if (type < Count) (*static_cast<Attributes<Count>*>(data))[type] = attribute;
    return MNL_CB_OK;
}

template <size_t Count>
Attributes<Count> nestedIn(const nlattr* outer) {
    Attributes<Count> inner = {};
    if (outer != nullptr) mnl_attr_parse_nested(outer, keepAttribute<Count>, &inner);
    return inner;
}

bool holds(const nlattr* attribute, mnl_attr_data_type type) {
    return attribute != nullptr && mnl_attr_validate(attribute, type) >= 0;
}

uint32_t wordOf(const nlattr* attribute) {
    return holds(attribute, MNL_TYPE_U32) ? mnl_attr_get_u32(attribute) : 0;
}

std::string textOf(const nlattr* attribute) {
    return holds(attribute, MNL_TYPE_NUL_STRING) ? mnl_attr_get_str(attribute) : "";
}

void readVlan(const nlattr* info, KernelLink& link) {
    const auto vlan = nestedIn<IFLA_VLAN_MAX + 1>(info);
    const nlattr* protocol = vlan[IFLA_VLAN_PROTOCOL];
    if (holds(protocol, MNL_TYPE_U16) && ntohs(mnl_attr_get_u16(protocol)) != ETH_P_8021Q) return;
    if (holds(vlan[IFLA_VLAN_ID], MNL_TYPE_U16)) link.vlanId = mnl_attr_get_u16(vlan[IFLA_VLAN_ID]);
}

void readBridge(const nlattr* info, KernelLink& link) {
    const auto bridge = nestedIn<IFLA_BR_VLAN_PROTOCOL + 1>(info);
    const nlattr* filtering = bridge[IFLA_BR_VLAN_FILTERING];
    link.filtersVlans = holds(filtering, MNL_TYPE_U8) && mnl_attr_get_u8(filtering) != 0;
    const nlattr* protocol = bridge[IFLA_BR_VLAN_PROTOCOL];
    if (holds(protocol, MNL_TYPE_U16)) link.vlanProtocol = ntohs(mnl_attr_get_u16(protocol));
}

// One whose tunnels are chosen by others (`external`) leaves the mark alone.
void readVxlan(const nlattr* info, KernelLink& link) {
    const auto vxlan = nestedIn<IFLA_VXLAN_MAX + 1>(info);
    const nlattr* external = vxlan[IFLA_VXLAN_COLLECT_METADATA];
    const bool chosen = holds(external, MNL_TYPE_U8) && mnl_attr_get_u8(external) != 0;
    link.groupPolicy = vxlan[IFLA_VXLAN_GBP] != nullptr && !chosen;
}

int addName(const nlattr* attribute, void* data) {
    const std::string name = mnl_attr_get_type(attribute) == IFLA_ALT_IFNAME ? textOf(attribute) : "";
    if (!name.empty()) static_cast<std::vector<std::string>*>(data)->push_back(name);
    return MNL_CB_OK;
}

KernelLink readLink(const nlmsghdr* message) {
    Attributes<IFLA_MAX + 1> attributes = {};
    mnl_attr_parse(message, sizeof(ifinfomsg), keepAttribute<IFLA_MAX + 1>, &attributes);
    KernelLink link;
    link.name = textOf(attributes[IFLA_IFNAME]);
    link.alias = textOf(attributes[IFLA_IFALIAS]);
    const nlattr* properties = attributes[IFLA_PROP_LIST];
    if (properties != nullptr) mnl_attr_parse_nested(properties, addName, &link.otherNames);
    link.master = wordOf(attributes[IFLA_MASTER]);
    // An index in another network namespace means nothing here.
    if (attributes[IFLA_LINK_NETNSID] == nullptr) link.lower = wordOf(attributes[IFLA_LINK]);
    const nlattr* switchId = attributes[IFLA_PHYS_SWITCH_ID];
    if (switchId != nullptr) {
        link.switchId = hexText(mnl_attr_get_payload(switchId), mnl_attr_get_payload_len(switchId));
    }
    const nlattr* xdp = nestedIn<IFLA_XDP_ATTACHED + 1>(attributes[IFLA_XDP])[IFLA_XDP_ATTACHED];
    link.xdp = holds(xdp, MNL_TYPE_U8) && mnl_attr_get_u8(xdp) != XDP_ATTACHED_NONE;
    const auto info = nestedIn<IFLA_INFO_MAX + 1>(attributes[IFLA_LINKINFO]);
    link.kind = textOf(info[IFLA_INFO_KIND]);
    if (link.kind == "vxlan") readVxlan(info[IFLA_INFO_DATA], link);
    if (link.kind == "vlan") readVlan(info[IFLA_INFO_DATA], link);
    if (isBridgeDevice(link)) readBridge(info[IFLA_INFO_DATA], link);
    return link;
}

// Messages of the bridge family are about a port's settings; one by which a port leaves looks like a
// deletion.
int takeMessage(const nlmsghdr* message, void* data) {
    const bool gone = message->nlmsg_type == RTM_DELLINK;
    if (!gone && message->nlmsg_type != RTM_NEWLINK) return MNL_CB_OK;
    if (mnl_nlmsg_get_payload_len(message) < sizeof(ifinfomsg)) return MNL_CB_OK;
    const auto* header = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
    if (header->ifi_family != AF_UNSPEC || header->ifi_index <= 0) return MNL_CB_OK;
    std::optional<KernelLink> link;
    if (!gone) link = readLink(message);
    if (link && (link->name.empty() || link->name.size() >= IFNAMSIZ)) return MNL_CB_OK;
    (*static_cast<LinkChanges*>(data))[static_cast<uint32_t>(header->ifi_index)] = link;
    return MNL_CB_OK;
}

mnl_socket* openRoute(int flags, uint32_t groups) {
    mnl_socket* route = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | flags);
    if (route == nullptr || mnl_socket_bind(route, groups, MNL_SOCKET_AUTOPID) == 0) return route;
    const int problem = errno;
    mnl_socket_close(route);
    errno = problem;
    return nullptr;
}

bool dumpOnce(mnl_socket* route, uint32_t sequence, LinkChanges& dumped) {
    std::vector<char> buffer(DATAGRAM_MAX);
    nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = RTM_GETLINK;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request->nlmsg_seq = sequence;
    static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)))->ifi_family = AF_UNSPEC;
    if (mnl_socket_sendto(route, request, request->nlmsg_len) < 0) return false;
    // A dump that a change disturbs fails with EINTR, at its very end or before.
    for (int more = MNL_CB_OK; more != MNL_CB_STOP;) {
        const ssize_t length = mnl_socket_recvfrom(route, buffer.data(), buffer.size());
        if (length < 0) return false;
        more = mnl_cb_run(buffer.data(), static_cast<size_t>(length), sequence, mnl_socket_get_portid(route),
                          takeMessage, &dumped);
        if (more < 0) return false;
    }
    return true;
}

// Tries until a dump is not disturbed.
bool dumpWhole(LinkChanges& dumped) {
    for (uint32_t attempt = 1; attempt <= DUMP_ATTEMPTS; ++attempt) {
        // A socket of its own: what an attempt that broke off has left unread is gone with it.
        mnl_socket* route = openRoute(0, 0);
        if (route == nullptr) return false;
        dumped.clear();
        const bool whole = dumpOnce(route, attempt, dumped);
        const int problem = errno;
        mnl_socket_close(route);
        errno = problem;
        if (whole || problem != EINTR) return whole;
    }
    return false;
}

}  // namespace

const KernelLink* linkAt(const KernelLinks& links, uint32_t index) {
    const auto found = links.find(index);
    return found == links.end() ? nullptr : &found->second;
}

bool isTrunkDevice(const KernelLink& link) {
    return link.kind == "bond" || link.kind == "team";
}

bool isBridgeDevice(const KernelLink& link) {
    return link.kind == "bridge";
}

LinkChanges linkDifferences(const KernelLinks& before, const KernelLinks& after) {
    LinkChanges changes;
    for (const auto& [index, link] : before) {
        if (!after.contains(index)) changes.emplace(index, std::nullopt);
    }
    for (const auto& [index, link] : after) {
        const auto former = before.find(index);
        if (former == before.end() || former->second != link) changes.emplace(index, link);
    }
    return changes;
}

bool readLinkMessages(const void* datagram, size_t length, LinkChanges& changes) {
    return mnl_cb_run(datagram, length, 0, 0, takeMessage, &changes) >= 0;
}

mnl_socket* openLinkEvents() {
    mnl_socket* events = openRoute(SOCK_NONBLOCK, RTMGRP_LINK);
    if (events == nullptr) return nullptr;
    // Beyond the system's limit where this process may; else as far as that goes.
    const int fd = mnl_socket_get_fd(events);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof(RECEIVE_BUFFER)) != 0) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof(RECEIVE_BUFFER));
    }
    return events;
}

void closeLinkEvents(mnl_socket* events) {
    if (events != nullptr) mnl_socket_close(events);
}

bool awaitLinkEvents(mnl_socket* events, int timeout) {
    pollfd input = {mnl_socket_get_fd(events), POLLIN, 0};
    return poll(&input, 1, timeout) > 0;
}

bool takeLinkEvents(mnl_socket* events, LinkChanges& changes) {
    static std::vector<char>& buffer = *new std::vector<char>(DATAGRAM_MAX);  // of the one task that watches
    for (int taken = 0; taken < BATCH_MAX; ++taken) {
        const ssize_t length = mnl_socket_recvfrom(events, buffer.data(), buffer.size());
        if (length < 0) return errno == EAGAIN || errno == EINTR;
        if (!readLinkMessages(buffer.data(), static_cast<size_t>(length), changes)) return false;
    }
    return true;
}

bool dumpLinks(KernelLinks& links) {
    LinkChanges dumped;
    if (!dumpWhole(dumped)) return false;
    links.clear();
    for (auto& [index, link] : dumped) {
        if (link) links.emplace(index, std::move(*link));
    }
    return true;
}

mnl_socket* pictureLinks(KernelLinks& links) {
    mnl_socket* events = openLinkEvents();
    if (events != nullptr && dumpLinks(links)) return events;
    const int problem = errno;
    closeLinkEvents(events);
    errno = problem;
    return nullptr;
}
