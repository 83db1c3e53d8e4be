#include "host/linux/bypass.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <ifaddrs.h>
#include <libmnl/libmnl.h>
#include <linux/if_ether.h>
#include <linux/netconf.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>

#include <array>
#include <map>
#include <set>
#include <string_view>

#include "host/linux/kernel_links.h"

namespace {

constexpr size_t ANSWER_ROOM = 64 * 1024;

// An open socket that asks for lists, of one bus of netlink.
struct Asker {
    mnl_socket* socket;
    std::vector<char> buffer = std::vector<char>(ANSWER_ROOM);

    explicit Asker(int bus) : socket(mnl_socket_open2(bus, SOCK_CLOEXEC)) {}
    Asker(const Asker&) = delete;
    ~Asker() {
        if (socket != nullptr) mnl_socket_close(socket);
    }
};

// Hands on each answer as bytes; what cannot be asked has none.
template <typename Head, typename Take>
void list(Asker& asker, uint16_t type, const Head& head, Take take) {
    if (asker.socket == nullptr) return;
    nlmsghdr* request = mnl_nlmsg_put_header(asker.buffer.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    *static_cast<Head*>(mnl_nlmsg_put_extra_header(request, sizeof(Head))) = head;
    if (mnl_socket_sendto(asker.socket, request, request->nlmsg_len) < 0) return;
    const auto handOn = [](const nlmsghdr* message, void* data) {
        (*static_cast<Take*>(data))({reinterpret_cast<const char*>(message), message->nlmsg_len});
        return MNL_CB_OK;
    };
    for (int more = MNL_CB_OK; more > MNL_CB_STOP;) {
        const ssize_t length = mnl_socket_recvfrom(asker.socket, asker.buffer.data(), asker.buffer.size());
        if (length < 0) return;
        more = mnl_cb_run(asker.buffer.data(), static_cast<size_t>(length), 0, 0, handOn, &take);
    }
}

// An attribute as it stands in a message.
std::string attributeOf(uint16_t type, std::string_view text) {
    const std::array<uint16_t, 2> head = {static_cast<uint16_t>(sizeof(head) + text.size() + 1), type};
    return std::string(reinterpret_cast<const char*>(head.data()), sizeof(head)) + std::string(text) + '\0';
}

// Ports at which a filter of tc has the action `mirred`, at whatever depth, or is a program.
std::set<std::string> redirectors(const std::map<uint32_t, std::string>& ports) {
    Asker asker(NETLINK_ROUTE);
    const std::string action = attributeOf(TCA_ACT_KIND, "mirred");
    const std::string program = attributeOf(TCA_KIND, "bpf");
    std::set<std::string> found;
    for (const auto& [index, name] : ports) {
        tcmsg head = {};
        head.tcm_ifindex = static_cast<int>(index);
        head.tcm_parent = TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_INGRESS);
        list(asker, RTM_GETTFILTER, head, [&, port = name](std::string_view answer) {
            for (const std::string& sign : {action, program}) {
                if (answer.find(sign) != std::string_view::npos) found.insert(port);
            }
        });
    }
    return found;
}

std::set<std::string> offloaded(const std::map<uint32_t, std::string>& ports) {
    Asker asker(NETLINK_NETFILTER);
    std::set<std::string> found;
    constexpr uint16_t TYPE = NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_GETFLOWTABLE;
    list(asker, TYPE, nfgenmsg{AF_UNSPEC, NFNETLINK_V0, 0}, [&](std::string_view answer) {
        for (const auto& [index, name] : ports) {
            const bool named = answer.find(attributeOf(NFTA_DEVICE_NAME, name)) != std::string_view::npos;
            if (named) found.insert(name);
        }
    });
    return found;
}

struct Routing {
    uint32_t device = 0;
    uint32_t forwards = 0;
};

int keepRouting(const nlattr* attribute, void* data) {
    Routing& routing = *static_cast<Routing*>(data);
    if (mnl_attr_validate(attribute, MNL_TYPE_U32) < 0) return MNL_CB_OK;
    if (mnl_attr_get_type(attribute) == NETCONFA_IFINDEX) routing.device = mnl_attr_get_u32(attribute);
    if (mnl_attr_get_type(attribute) == NETCONFA_FORWARDING) routing.forwards = mnl_attr_get_u32(attribute);
    return MNL_CB_OK;
}

// The devices between which this machine routes packets of a family. Not asked of /proc: a service may see
// nothing of it but processes.
std::set<uint32_t> forwarders(uint8_t family) {
    Asker asker(NETLINK_ROUTE);
    std::set<uint32_t> found;
    list(asker, RTM_GETNETCONF, netconfmsg{family}, [&](std::string_view answer) {
        const auto* message = reinterpret_cast<const nlmsghdr*>(answer.data());
        Routing routing;
        mnl_attr_parse(message, sizeof(netconfmsg), keepRouting, &routing);
        if (routing.forwards == 1) found.insert(routing.device);
    });
    return found;
}

// The bridge and the VLAN devices on it that have an address between which this machine routes.
std::set<std::string> routers(const std::set<std::string>& devices) {
    std::set<std::string> found;
    const std::set<uint32_t> inet = forwarders(AF_INET), inet6 = forwarders(AF_INET6);
    ifaddrs* addresses = nullptr;
    if (getifaddrs(&addresses) != 0) return found;
    for (const ifaddrs* one = addresses; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || !devices.contains(one->ifa_name)) continue;
        const int family = one->ifa_addr->sa_family;
        const bool local =
            family == AF_INET6 &&
            IN6_IS_ADDR_LINKLOCAL(&reinterpret_cast<const sockaddr_in6*>(one->ifa_addr)->sin6_addr);
        const uint32_t index = if_nametoindex(one->ifa_name);
        if ((family == AF_INET && inet.contains(index)) ||
            (family == AF_INET6 && !local && inet6.contains(index))) {
            found.insert(one->ifa_name);
        }
    }
    freeifaddrs(addresses);
    return found;
}

}  // namespace

std::vector<std::string> bypassesOf(const std::string& bridge) {
    KernelLinks links;
    if (bridge.empty() || !dumpLinks(links)) return {};
    std::map<uint32_t, std::string> ports;
    std::set<std::string> own = {bridge};
    const auto isBridge = [&](uint32_t index) {
        const KernelLink* link = linkAt(links, index);
        return link != nullptr && link->name == bridge;
    };
    for (const auto& [index, link] : links) {
        if (isBridge(link.master)) ports.emplace(index, link.name);
        if (isBridge(link.lower)) own.insert(link.name);
    }
    std::vector<std::string> sentences;
    const auto tell = [&](const std::set<std::string>& who, std::string_view what) {
        if (!who.empty()) sentences.push_back(fmt::format("{}: {}", fmt::join(who, " "), what));
    };
    tell(redirectors(ports),
         "a filter of tc may send frames on (mirred, bpf), past the filter of the bridge");
    tell(offloaded(ports), "flows that a flowtable has taken up pass no filter of the bridge");
    tell(routers(own), "this machine routes, and what it routes passes no filter of the bridge");
    return sentences;
}
