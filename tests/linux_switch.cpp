#include "linux_switch.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto PATIENCE = std::chrono::seconds(60);
constexpr auto ROUND = std::chrono::milliseconds(50);  // of greetings, until all have been heard
constexpr uint16_t TEST_PROTOCOL = 0x88B5;             // set aside for experiments
constexpr uint16_t ANY_VLAN = 0xffff;
constexpr uint32_t PROBE = 0x70726f62;
constexpr uint32_t STREAM = 0x73747265;

// What a frame carries behind its addresses and its tag, if any; in network order.
struct Tag {
    uint16_t protocol, vid;
};
struct [[gnu::packed]] Content {
    uint16_t protocol;
    uint32_t marker, sequence;  // of the host: both ends are here
};

struct Received {
    uint32_t sequence;
    uint16_t vid;
};

template <typename Record>
std::string bytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

const std::string EVERYBODY(ETH_ALEN, '\xff');

// Of the hosts, not of their devices: a host with several ends has one.
std::string addressOf(const LinuxSwitch& network, const std::string& host) {
    const auto index = std::distance(network.hosts.begin(), network.hosts.find(host));
    return std::string("\x02\0\0\0\0", ETH_ALEN - 1) + static_cast<char>(index + 1);
}

std::string makeFrame(const LinuxSwitch& network, const std::string& from, const std::string& to,
                      uint16_t vid, uint32_t marker, uint32_t sequence) {
    std::string frame = to + addressOf(network, from);
    if (vid != 0 && network.hosts.at(from).access == 0) {
        frame += bytesOf(Tag{htons(ETHERTYPE_VLAN), htons(vid)});
    }
    frame += bytesOf(Content{htons(TEST_PROTOCOL), marker, sequence});
    frame.resize(ETH_ZLEN);
    return frame;
}

void sendFrame(const LinuxSwitch& network, const std::string& from, const std::string& to, uint16_t vid,
               uint32_t marker, uint32_t sequence) {
    const std::string frame = makeFrame(network, from, to, vid, marker, sequence);
    // One that cannot leave just now does not arrive, which is seen.
    for (const int fd : network.hosts.at(from).sockets) {
        (void)!send(fd, frame.data(), frame.size(), MSG_DONTWAIT);
    }
}

// The next probe that waits at one end of a host; false when there is none. Frames of streams are counted.
bool receiveProbe(SwitchHost& host, int fd, Received& received) {
    while (true) {
        uint8_t frame[ETH_FRAME_LEN];
        char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
        iovec space = {frame, sizeof(frame)};
        msghdr message = {};
        message.msg_iov = &space;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        const ssize_t got = recvmsg(fd, &message, MSG_DONTWAIT);
        if (got < 0) return false;
        Content content = {};
        size_t at = 2 * ETH_ALEN;
        do {
            if (got < static_cast<ssize_t>(at + sizeof(content))) break;
            std::memcpy(&content, frame + at, sizeof(content));
            at += sizeof(Tag);
        } while (content.protocol == htons(ETH_P_8021Q) || content.protocol == htons(ETH_P_8021AD));
        if (content.protocol != htons(TEST_PROTOCOL)) continue;
        if (content.marker == STREAM) {
            ++host.streams;
            host.senders.insert(frame[2 * ETH_ALEN - 1]);
        }
        if (content.marker != PROBE) continue;
        received = {content.sequence, 0};
        for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
            tpacket_auxdata data;
            if (part->cmsg_level != SOL_PACKET || part->cmsg_type != PACKET_AUXDATA) continue;
            std::memcpy(&data, CMSG_DATA(part), sizeof(data));
            if ((data.tp_status & TP_STATUS_VLAN_VALID) != 0) received.vid = data.tp_vlan_tci & 0xfff;
        }
        return true;
    }
}

bool takesPart(const SwitchHost& host, uint16_t vid) {
    return host.access == 0 || host.access == vid;
}

using Arrivals = std::set<std::pair<uint32_t, std::string>>;  // sequence number, receiver

// Gathers what arrives in a VLAN until all that is wanted is there, or time is up.
bool gather(LinuxSwitch& network, uint16_t vid, const Arrivals& wanted, Clock::time_point until,
            Arrivals& arrived) {
    while (true) {
        std::vector<pollfd> polled;
        for (auto& [name, host] : network.hosts) {
            Received received = {};
            for (const int fd : host.sockets) {
                while (receiveProbe(host, fd, received)) {
                    const bool fits = takesPart(host, vid) && received.vid == (host.access == 0 ? vid : 0);
                    if (fits || vid == ANY_VLAN) arrived.emplace(received.sequence, name);
                }
                polled.push_back({fd, POLLIN, 0});
            }
        }
        if (std::includes(arrived.begin(), arrived.end(), wanted.begin(), wanted.end())) return true;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
        if (left.count() <= 0) return false;
        poll(polled.data(), polled.size(), static_cast<int>(left.count()));
    }
}

uint32_t nextSequence() {
    static uint32_t sequence = 0;
    return ++sequence;
}

// Greets until the witness and everybody else have heard of each other: all ports forward, and the bridge has
// learned where everybody is. Who has not been heard, if anybody.
std::string settle(LinuxSwitch& network, uint16_t vid) {
    const auto deadline = Clock::now() + PATIENCE;
    while (true) {
        Arrivals wanted, arrived;
        for (const auto& [name, host] : network.hosts) {
            if (!takesPart(host, vid)) continue;
            const uint32_t sequence = nextSequence();
            sendFrame(network, name, EVERYBODY, vid, PROBE, sequence);
            for (const auto& [other, receiver] : network.hosts) {
                const bool greets = (name == WITNESS) != (other == WITNESS);
                if (greets && takesPart(receiver, vid)) wanted.emplace(sequence, other);
            }
        }
        if (gather(network, vid, wanted, Clock::now() + ROUND, arrived)) return {};
        if (Clock::now() < deadline) continue;
        std::erase_if(wanted, [&](const auto& want) { return arrived.contains(want); });
        return "unheard by " + wanted.begin()->second;
    }
}

// Frames keep their order as long as one processor handles them.
struct OnOneProcessor {
    cpu_set_t before = {};
    OnOneProcessor() {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        sched_getaffinity(0, sizeof(before), &before);
        sched_setaffinity(0, sizeof(one), &one);
    }
    ~OnOneProcessor() { sched_setaffinity(0, sizeof(before), &before); }
};

}  // namespace

std::string sh(const std::string& command) {
    FILE* output = popen(("exec 2>&1; " + command).c_str(), "r");
    if (output == nullptr) return std::strerror(errno);
    std::string text;
    char piece[512];
    while (const size_t got = std::fread(piece, 1, sizeof(piece), output)) text.append(piece, got);
    const int status = pclose(output);
    return status == 0 ? "" : command + ": " + (text.empty() ? "failed" : text);
}

std::string enterNetwork() {
    if (unshare(CLONE_NEWNET) != 0) {
        return std::string("a network namespace cannot be made: ") + std::strerror(errno);
    }
    // Nothing is to be sent but by the tests.
    for (const char* of : {"all", "default"}) {
        std::ofstream(std::string("/proc/sys/net/ipv6/conf/") + of + "/disable_ipv6") << 1;
    }
    return {};
}

std::string buildSwitch(LinuxSwitch& network, const std::vector<std::string>& ports,
                        const std::string& bridgeOptions) {
    std::string problem =
        sh(std::string("ip link add ") + BRIDGE + " up type bridge stp_state 0 " + bridgeOptions);
    for (const std::string& port : ports) {
        if (problem.empty()) problem = addHost(network, port);
    }
    return problem.empty() ? addHost(network, WITNESS) : problem;
}

int openEnd(const std::string& device) {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device.c_str()));
    if (fd >= 0 && setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on)) == 0 &&
        setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof(on)) == 0 &&
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return fd;
    }
    close(fd);
    return -1;
}

std::string addEnd(LinuxSwitch& network, const std::string& host, const std::string& port) {
    const std::string problem =
        sh("ip link add " + port + " up type veth peer name h" + port + " && ip link set h" + port + " up");
    if (!problem.empty()) return problem;
    const int fd = openEnd("h" + port);
    if (fd < 0) return "h" + port + ": " + std::strerror(errno);
    network.hosts[host].sockets.push_back(fd);
    return {};
}

std::string addHost(LinuxSwitch& network, const std::string& port) {
    const std::string problem = addEnd(network, port, port);
    return problem.empty() ? sh("ip link set " + port + " master " + BRIDGE) : problem;
}

void deleteHost(LinuxSwitch& network, const std::string& port) {
    for (const int fd : network.hosts[port].sockets) close(fd);
    network.hosts.erase(port);
    sh("ip link del " + port);
}

void dropSwitch(LinuxSwitch& network) {
    for (const auto& [name, host] : network.hosts) {
        for (const int fd : host.sockets) close(fd);
    }
    network.hosts.clear();
}

std::string blocked(LinuxSwitch& network, uint16_t vid) {
    const OnOneProcessor pinned;
    std::string result = settle(network, vid);
    if (!result.empty()) return result;
    struct Probe {
        std::string from, to;
        uint32_t unicast, broadcast;
    };
    std::vector<Probe> probes;
    Arrivals wanted, arrived;
    for (const auto& [from, sender] : network.hosts) {
        if (from == WITNESS || !takesPart(sender, vid)) continue;
        const uint32_t broadcast = nextSequence();
        sendFrame(network, from, EVERYBODY, vid, PROBE, broadcast);
        for (const auto& [to, receiver] : network.hosts) {
            if (to == WITNESS || to == from || !takesPart(receiver, vid)) continue;
            probes.push_back({from, to, nextSequence(), broadcast});
            sendFrame(network, from, addressOf(network, to), vid, PROBE, probes.back().unicast);
        }
    }
    const uint32_t witness = nextSequence();
    sendFrame(network, WITNESS, EVERYBODY, vid, PROBE, witness);
    for (const Probe& probe : probes) wanted.emplace(witness, probe.to);
    if (!gather(network, vid, wanted, Clock::now() + PATIENCE, arrived)) return "the witness is not heard";
    for (const Probe& probe : probes) {
        const bool unicast = arrived.contains({probe.unicast, probe.to});
        const bool broadcast = arrived.contains({probe.broadcast, probe.to});
        if (unicast && broadcast) continue;
        result += (result.empty() ? "" : " ") + probe.from + ">" + probe.to;
        if (unicast != broadcast) result += unicast ? "(broadcast)" : "(unicast)";
    }
    return result;
}

bool hearsItself(LinuxSwitch& network, const std::string& host, uint16_t vid) {
    Arrivals arrived;
    if (!settle(network, vid).empty()) return false;
    const uint32_t sequence = nextSequence();
    sendFrame(network, host, EVERYBODY, vid, PROBE, sequence);
    return gather(network, vid, {{sequence, host}}, Clock::now() + PATIENCE, arrived);
}

std::set<TagStack> passing(LinuxSwitch& network, const std::string& from, const std::string& to,
                           const std::set<TagStack>& stacks) {
    const OnOneProcessor ordered;
    std::map<uint32_t, TagStack> sent;
    Arrivals arrived;
    // Before the frames, until the ports forward, and behind them.
    for (const bool behind : {false, true}) {
        for (const TagStack& stack : behind ? stacks : std::set<TagStack>{}) {
            std::string tags;
            for (const FrameTag& tag : stack) tags += bytesOf(Tag{htons(tag.protocol), htons(tag.vid)});
            sent.emplace(nextSequence(), stack);
            std::string frame = makeFrame(network, from, EVERYBODY, 0, PROBE, sent.rbegin()->first);
            frame.insert(2 * ETH_ALEN, tags);
            (void)!send(network.hosts.at(from).sockets[0], frame.data(), frame.size(), 0);
        }
        const auto deadline = Clock::now() + PATIENCE;
        bool heard = false;
        while (!heard && Clock::now() < deadline) {
            const uint32_t witness = nextSequence();
            sendFrame(network, WITNESS, EVERYBODY, 0, PROBE, witness);
            heard = gather(network, ANY_VLAN, {{witness, to}}, Clock::now() + ROUND, arrived);
        }
    }
    std::set<TagStack> passed;
    for (const auto& [sequence, stack] : sent) {
        if (arrived.contains({sequence, to})) passed.insert(stack);
    }
    return passed;
}

std::string streamFrame(const LinuxSwitch& network, const std::string& from, const std::string& to) {
    return makeFrame(network, from, addressOf(network, to), 0, STREAM, 0);
}

void sendStream(const LinuxSwitch& network, const std::string& from) {
    sendFrame(network, from, EVERYBODY, 0, STREAM, 0);
    for (const auto& [to, host] : network.hosts) {
        if (to != from) sendFrame(network, from, addressOf(network, to), 0, STREAM, 0);
    }
}

uint32_t heardOfStreams(LinuxSwitch& network, const std::string& name) {
    SwitchHost& host = network.hosts.at(name);
    Received received = {};
    for (const int fd : host.sockets) {
        while (receiveProbe(host, fd, received)) continue;
    }
    return std::exchange(host.streams, 0);
}

std::string streamsFrom(LinuxSwitch& network, const std::string& name) {
    heardOfStreams(network, name);
    const std::set<uint8_t> senders = std::exchange(network.hosts.at(name).senders, {});
    std::string names;
    for (const auto& [other, host] : network.hosts) {
        const auto end = static_cast<uint8_t>(addressOf(network, other).back());
        if (senders.contains(end)) names += (names.empty() ? "" : " ") + other;
    }
    return names;
}
