// What the Linux plane costs: a pair isolated and released again, compared with the same transactions written
// by hand, and a frame from one port of a bridge to another, beside what others keep ports apart with. Runs
// in a network namespace of its own, which needs root.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <libmnl/libmnl.h>
#include <libnftnl/common.h>
#include <libnftnl/set.h>
#include <linux/if_packet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <vector>

#include "host/linux/linux_plane.h"
#include "tests/linux_switch.h"

namespace {
constexpr unsigned FRAMES = 64;        // sent at once
constexpr uint32_t NAMED_PORTS = 265;  // 34,980 pairs of ports, 69,960 elements

LinuxSwitch network;
Plane plane = {};
std::deque<std::string> names;
int64_t held = -1;  // pairs of other ports
const std::string tableFile = "/tmp/portisolate-" + std::to_string(getpid());

void must(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "plane_bench: %s\n", what.c_str());
    std::exit(EXIT_FAILURE);
}

PlanePort portOf(uint32_t number) {
    while (names.size() <= number) names.push_back("port" + std::to_string(names.size()));
    const char* name = names[number].c_str();
    return {number, 1, false, false, name, name, "", ""};
}

void dropPlane() {
    held = -1;
    if (plane.state != nullptr) plane.destroy(plane.state);
    plane = {};
    sh("nft delete table bridge portisolate");
}

// Makes the plane hold so many pairs, of ports that the bridge does not have.
void startWith(benchmark::State& state) {
    if (plane.state != nullptr && held == state.range(0)) return;
    dropPlane();
    plane = createLinuxPlane();
    const std::string problem = startLinuxPlane(plane, {});
    must(problem.empty(), problem);
    held = 0;
    for (uint32_t src = 0; src < NAMED_PORTS; ++src) {
        for (uint32_t dst = 0; dst < src && held < state.range(0); ++dst, ++held)
            must(plane.addTwoWay(plane.state, portOf(src), portOf(dst), {}) == 0, "a pair was refused");
    }
    must(held == state.range(0), "there are not so many pairs");
}

void pairByPlane(benchmark::State& state) {
    startWith(state);
    const PlanePort src = portOf(NAMED_PORTS);
    const PlanePort dst = portOf(NAMED_PORTS + 1);
    for (auto _ : state) {
        must(plane.addTwoWay(plane.state, src, dst, {}) == 0, "an add was refused");
        must(plane.deleteTwoWay(plane.state, src.ifUnit, dst.ifUnit) == 0, "a delete was refused");
    }
}

void frameHeader(mnl_nlmsg_batch* batch, uint16_t type, uint32_t& sequence) {
    nftnl_batch_begin(static_cast<char*>(mnl_nlmsg_batch_current(batch)), sequence++);
    static_cast<nlmsghdr*>(mnl_nlmsg_batch_current(batch))->nlmsg_type = type;
    mnl_nlmsg_batch_next(batch);
}

// One transaction with the elements of both directions of a pair.
void rawTransaction(mnl_socket* socket, uint16_t type, uint32_t& sequence) {
    char buffer[8192];
    mnl_nlmsg_batch* batch = mnl_nlmsg_batch_start(buffer, sizeof buffer / 2);
    frameHeader(batch, NFNL_MSG_BATCH_BEGIN, sequence);
    nftnl_set* set = nftnl_set_alloc();
    nftnl_set_set_str(set, NFTNL_SET_TABLE, "portisolate");
    nftnl_set_set_str(set, NFTNL_SET_NAME, "pairs");
    for (const bool reverse : {false, true}) {
        char key[32] = {};
        memcpy(key, reverse ? "raw1" : "raw0", 4);
        memcpy(key + 16, reverse ? "raw0" : "raw1", 4);
        nftnl_set_elem* element = nftnl_set_elem_alloc();
        nftnl_set_elem_set(element, NFTNL_SET_ELEM_KEY, key, sizeof key);
        if (type == NFT_MSG_NEWSETELEM) nftnl_set_elem_set_u32(element, NFTNL_SET_ELEM_VERDICT, NF_DROP);
        nftnl_set_elem_add(set, element);
    }
    nlmsghdr* header = nftnl_nlmsg_build_hdr(static_cast<char*>(mnl_nlmsg_batch_current(batch)), type,
                                             NFPROTO_BRIDGE, NLM_F_CREATE, sequence++);
    nftnl_set_elems_nlmsg_build_payload(header, set);
    nftnl_set_free(set);
    mnl_nlmsg_batch_next(batch);
    frameHeader(batch, NFNL_MSG_BATCH_END, sequence);
    const ssize_t sent = mnl_socket_sendto(socket, mnl_nlmsg_batch_head(batch), mnl_nlmsg_batch_size(batch));
    mnl_nlmsg_batch_stop(batch);
    char answer[8192];
    must(sent > 0 && recv(mnl_socket_get_fd(socket), answer, sizeof answer, MSG_DONTWAIT) < 0,
         "the kernel refused a transaction");
}

void pairByHand(benchmark::State& state) {
    startWith(state);
    mnl_socket* socket = mnl_socket_open(NETLINK_NETFILTER);
    must(socket != nullptr && mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) == 0, "no netlink socket");
    uint32_t sequence = 1;
    for (auto _ : state) {
        rawTransaction(socket, NFT_MSG_NEWSETELEM, sequence);
        rawTransaction(socket, NFT_MSG_DELSETELEM, sequence);
    }
    mnl_socket_close(socket);
}

// The bridge forwards a frame while the call that sends it is under way.
void sendFrames(benchmark::State& state, int fd, const std::string& frame) {
    iovec part = {const_cast<char*>(frame.data()), frame.size()};
    mmsghdr messages[FRAMES] = {};
    for (mmsghdr& message : messages) message.msg_hdr = {nullptr, 0, &part, 1, nullptr, 0, 0};
    for (auto _ : state) must(sendmmsg(fd, messages, FRAMES, 0) == FRAMES, "frames cannot be sent");
    state.counters["per_frame"] = benchmark::Counter(
        FRAMES, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void sendFrames(benchmark::State& state) {
    sendFrames(state, network.hosts.at("p1").sockets[0], streamFrame(network, "p1", "p2"));
}

// What else can keep p1 and p2 apart: how it is made, with which elements, and how it goes.
struct Peer {
    const char* make;
    const char* element;  // of the ports %s and %s
    const char* drop;     // p1 from p2, too
    const char* remove;
};
const Peer NOTHING = {"true", "", "true", "true"};
const Peer EMPTY_CHAIN = {
    "nft 'table bridge hand { chain forward { type filter hook forward priority filter; }; }'", "", "true",
    "nft delete table bridge hand"};
const Peer SET = {
    "nft 'table bridge hand { set s { type ifname . ifname; counter; }; chain forward { type filter "
    "hook forward priority filter; iifname . oifname @s drop; }; }'",
    "add element bridge hand s { \"%s\" . \"%s\" }\n", "nft add element bridge hand s '{ p1 . p2 }'",
    "nft delete table bridge hand"};
const Peer MAP = {
    "nft 'table bridge hand { map s { type ifname . ifname : verdict; counter; }; chain forward { type "
    "filter hook forward priority filter; iifname . oifname vmap @s; }; }'",
    "add element bridge hand s { \"%s\" . \"%s\" : drop }\n",
    "nft add element bridge hand s '{ p1 . p2 : drop }'", "nft delete table bridge hand"};
const Peer FLAG = {"true", "", "bridge link set dev p1 isolated on && bridge link set dev p2 isolated on",
                   "bridge link set dev p1 isolated off && bridge link set dev p2 isolated off"};
const Peer EBTABLES = {
    "ebtables -N hand && ebtables -A FORWARD -j hand", "", "ebtables -A hand -i p1 -o p2 -j DROP",
    "ebtables -F FORWARD; ebtables -F hand; ebtables -X hand; nft delete table bridge filter"};
// Open vSwitch, whose kernel datapath forwards between the two ports in place of the bridge.
#define DATAPATH "d=/tmp/portisolate-datapath-$PPID; "
#define DATAPATH_CTL "ovs-vsctl --db=unix:$d/db.sock "
const Peer PROTECTED = {
    DATAPATH
    "(modprobe openvswitch; mkdir $d; ovsdb-tool create $d/db) >/dev/null 2>&1 && "
    "ovsdb-server --remote=punix:$d/db.sock --unixctl=$d/db.ctl --pidfile=$d/db.pid --detach --no-chdir "
    "-vconsole:off $d/db && "
    "ovs-vswitchd --unixctl=$d/switch.ctl --pidfile=$d/switch.pid --detach --no-chdir -vconsole:off "
    "unix:$d/db.sock && "
    "ip link set p1 nomaster && ip link set p2 nomaster && " DATAPATH_CTL
    "add-br ovs0 -- add-port ovs0 p1 -- add-port ovs0 p2 && "
    "ovs-appctl -t $d/switch.ctl fdb/add ovs0 p2 0 02:00:00:00:00:02",
    "", DATAPATH DATAPATH_CTL "set port p1 protected=true -- set port p2 protected=true",
    DATAPATH DATAPATH_CTL
    "del-br ovs0; kill $(cat $d/*.pid); rm -r $d; ip link set p1 master br0; ip link set p2 master br0"};

std::string elementsOf(const Peer& peer, int64_t pairs) {
    std::string script;
    char line[128];
    for (uint32_t src = 0; *peer.element != '\0' && src < NAMED_PORTS; ++src) {
        for (uint32_t dst = 0; dst < src && pairs > 0; ++dst, --pairs) {
            for (const bool reverse : {false, true}) {
                std::snprintf(line, sizeof line, peer.element, portOf(reverse ? dst : src).name,
                              portOf(reverse ? src : dst).name);
                script += line;
            }
        }
    }
    return script;
}

// The first argument: how many pairs of other ports are isolated; the second: whether p1 is from p2.
void frameByHand(benchmark::State& state, const Peer& peer) {
    dropPlane();
    std::string problem = sh(peer.make);
    if (problem.empty()) {
        char name[] = "/tmp/elementsXXXXXX";
        const int fd = mkstemp(name);
        const std::string script = elementsOf(peer, state.range(0));
        must(write(fd, script.data(), script.size()) == static_cast<ssize_t>(script.size()), "no room");
        close(fd);
        if (!script.empty()) problem = sh(std::string("nft -f ") + name);
        unlink(name);
    }
    if (problem.empty() && state.range(1) != 0) problem = sh(peer.drop);
    if (problem.empty()) sendFrames(state);
    sh(peer.remove);
    if (!problem.empty()) state.SkipWithError(problem.c_str());
}

void frameByPlane(benchmark::State& state) {
    startWith(state);
    const PlanePort src = {1, 1, false, false, "p1", "p1", "", ""},
                    dst = {2, 1, false, false, "p2", "p2", "", ""};
    if (state.range(1) != 0) must(plane.addTwoWay(plane.state, src, dst, {}) == 0, "a pair was refused");
    watchLinuxTable(plane);  // which takes away what an earlier measurement needed
    sendFrames(state);
    if (state.range(1) != 0) plane.deleteTwoWay(plane.state, src.ifUnit, dst.ifUnit);
}

// Every kind in use, and nothing of it holds the frame: both ports in a VLAN group and a one-way pair of
// others, PON isolation off in the frame's VLAN. Argument: the bridge filters VLANs.
void frameByEveryKind(benchmark::State& state) {
    const bool filters = state.range(0) != 0;
    dropPlane();
    if (filters && !sh("ip link set br0 type bridge vlan_filtering 1").empty()) {
        state.SkipWithError("this kernel's bridges do not filter VLANs");
        return;
    }
    plane = createLinuxPlane();
    const std::string problem =
        startLinuxPlane(plane, {.access = {"p1", "p2"}, .vlans = {.filters = filters}});
    must(problem.empty(), problem);
    const PlanePort src = {1, 1, true, false, "p1", "p1", "", ""},
                    dst = {2, 1, true, false, "p2", "p2", "", ""};
    must(plane.addTwoWay(plane.state, src, dst, {10, 0, 0, 5}) == 0 &&
             plane.addTwoWay(plane.state, portOf(3), portOf(4), {}) == 0 &&
             plane.addOneWay(plane.state, portOf(5), portOf(6), {}) == 0 &&
             plane.setPon(plane.state, 1, false, {}) == 0,
         "a command was refused");
    sendFrames(state);
    dropPlane();
    if (filters) sh("ip link set br0 type bridge vlan_filtering 0");
}

// What such a bridge costs by itself.
void frameOnFiltering(benchmark::State& state) {
    dropPlane();
    if (!sh("ip link set br0 type bridge vlan_filtering 1").empty()) {
        state.SkipWithError("this kernel's bridges do not filter VLANs");
        return;
    }
    sendFrames(state);
    sh("ip link set br0 type bridge vlan_filtering 0");
}

// A group of so many ports, of which each joins in a turn of its own, made and released.
void groupByPlane(benchmark::State& state) {
    const auto ports = static_cast<uint32_t>(state.range(0));
    for (auto _ : state) {
        dropPlane();
        plane = createLinuxPlane();
        must(startLinuxPlane(plane, {}).empty(), "no table");
        const auto each = [&](auto&& command) {
            const auto start = std::chrono::steady_clock::now();
            for (uint32_t dst = 1; dst < ports; ++dst) {
                plane.begin(plane.state);
                for (uint32_t src = 0; src < dst; ++src)
                    must(command(src, dst) == 0, "a command was refused");
                plane.end(plane.state);
            }
            return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        };
        portOf(ports);
        state.SetIterationTime(each([](uint32_t src, uint32_t dst) {
            return plane.addTwoWay(plane.state, portOf(src), portOf(dst), {});
        }));
        must(state.range(1) != 0 ||
                 sh("nft list table bridge portisolate | sed '/flags/d' >" + tableFile).empty(),
             "no list");
        const double released =
            each([](uint32_t src, uint32_t dst) { return plane.deleteTwoWay(plane.state, src, dst); });
        if (state.range(1) != 0) state.SetIterationTime(released);
    }
}

// The same table, as groupByPlane has left it in a file.
void groupByNft(benchmark::State& state) {
    for (auto _ : state) {
        dropPlane();
        const auto start = std::chrono::steady_clock::now();
        must(sh("nft -f " + tableFile).empty(), "nft refused the table");
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        sh("nft delete table bridge portisolate");
    }
}

// What this thread has spent outside the kernel, in seconds.
double ownTime() {
    rusage usage = {};
    getrusage(RUSAGE_THREAD, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec) + static_cast<double>(usage.ru_utime.tv_usec) * 1e-6;
}

void renameByPlane(benchmark::State& state) {
    startWith(state);
    bool other = false;
    const double before = ownTime();
    for (auto _ : state) {
        other = !other;
        must(renameLinuxPort(plane, 0, other ? "other" : portOf(0).device) == 0, "a name was refused");
    }
    state.counters["own"] = benchmark::Counter(ownTime() - before, benchmark::Counter::kAvgIterations);
    renameLinuxPort(plane, 0, portOf(0).device);
}

// A tunnel to another machine, which is the other end of a cable.
constexpr char TUNNEL[] =
    "ip link add u up address 02:00:00:00:aa:01 type veth peer name hu && ip link set hu up && "
    "ip addr add 10.9.0.1/24 dev u && ip neigh add 10.9.0.2 lladdr 02:00:00:00:aa:02 dev u nud permanent && "
    "ip link add vx0 up type vxlan id 1 dstport 4700 local 10.9.0.1 nolearning noudpcsum gbp && ip link set "
    "vx0 "
    "master br0 && bridge fdb append 00:00:00:00:00:00 dev vx0 dst 10.9.0.2";
constexpr size_t OUTER = 42, TUNNEL_FLAGS = OUTER, TUNNEL_GROUPS = OUTER + 2, INNER = OUTER + 8;

// What the other machine would send to p2: a frame of p1 on its way there, turned round.
std::string arrivingFrame(int cable, const std::string& inner, uint16_t groups) {
    char bytes[256];
    const std::string sent = streamFrame(network, "p1", "p2").replace(0, 6, 6, '\xff');
    must(send(network.hosts.at("p1").sockets[0], sent.data(), sent.size(), 0) > 0, "no frame leaves");
    const ssize_t got = recv(cable, bytes, sizeof bytes, 0);
    must(got == static_cast<ssize_t>(INNER + sent.size()), "no frame arrives");
    std::string frame(bytes, INNER);
    std::swap_ranges(frame.begin(), frame.begin() + 6, frame.begin() + 6);
    std::swap_ranges(frame.begin() + 26, frame.begin() + 30, frame.begin() + 30);
    frame[TUNNEL_FLAGS] = static_cast<char>(groups == 0 ? 0x08 : 0x88);
    frame[TUNNEL_GROUPS] = static_cast<char>(groups >> 8);
    frame[TUNNEL_GROUPS + 1] = static_cast<char>(groups);
    return frame + inner;
}

enum Crossing : int64_t { NONE, OUT, OUT_MARKED, IN };

// Arguments: which way, the groups in use (-1: nothing is laid for other machines), and those of the frame.
void frameOverTunnel(benchmark::State& state) {
    const auto groups = static_cast<uint32_t>(std::max<int64_t>(state.range(1), 0));
    const auto bits = static_cast<uint16_t>(state.range(2));
    dropPlane();
    std::string problem = sh(TUNNEL);
    const int cable = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_IP));
    sockaddr_ll at = {};
    at.sll_family = AF_PACKET;
    at.sll_protocol = htons(ETH_P_IP);
    at.sll_ifindex = static_cast<int>(if_nametoindex("hu"));
    if (problem.empty() && bind(cable, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0)
        problem = "no cable";
    plane = createLinuxPlane();
    LinuxPlaneStart start = {.vlans = {.filters = false}};
    if (state.range(1) >= 0) start.span = {"vx0"};
    if (problem.empty()) problem = startLinuxPlane(plane, start);
    must(problem.empty(), problem);
    setLinuxSpan(plane, {{"vx0", {if_nametoindex("vx0"), true}}});
    const PlanePort p1 = {1, 1, false, false, "p1", "p1", "", ""};
    for (uint32_t group = 1; group <= groups; ++group) {
        must(plane.setMember(plane.state, portOf(10 + group), group, 0, true) == 0, "no member");
        if ((bits >> (group - 1) & 1) != 0 && state.range(0) != IN) {
            must(plane.setMember(plane.state, p1, group, 0, true) == 0, "no member");
        }
    }
    if (state.range(0) == OUT_MARKED) {
        sh("nft 'table bridge others { chain marks { type filter hook prerouting priority 0; meta mark set "
           "0x20000; }; }'");
    }
    const std::string within = streamFrame(network, "p1", "p2");
    const std::string stranger = std::string(within).replace(0, 6, std::string("\x02\0\0\0\x9\x9", 6));
    const std::string remote = std::string(within).replace(6, 6, std::string("\x02\0\0\0\x9\x8", 6));
    const int p1End = network.hosts.at("p1").sockets[0];
    const std::string arriving = arrivingFrame(cable, remote, bits);
    close(cable);
    const int out = socket(AF_PACKET, SOCK_RAW, 0);
    bind(out, reinterpret_cast<sockaddr*>(&(at.sll_protocol = 0, at)), sizeof at);
    if (state.range(0) == NONE) sendFrames(state, p1End, within);
    if (state.range(0) == OUT || state.range(0) == OUT_MARKED) sendFrames(state, p1End, stranger);
    if (state.range(0) == IN) sendFrames(state, out, arriving);
    close(out);
    dropPlane();
    sh("nft delete table bridge others; ip link del vx0; ip link del u");
}

double best(const std::vector<double>& rounds) {
    return *std::min_element(rounds.begin(), rounds.end());
}

void withPairs(benchmark::internal::Benchmark* measured) {
    measured->ArgName("pairs")->Arg(0)->Arg(500)->Arg(34980)->ComputeStatistics("best", best);
}

BENCHMARK(pairByPlane)->Apply(withPairs);
BENCHMARK(pairByHand)->Apply(withPairs);

void withFrames(benchmark::internal::Benchmark* measured) {
    measured->ArgNames({"pairs", "dropped"})->ComputeStatistics("best", best);
    for (const int64_t pairs : {1, 500, 34980}) measured->Args({pairs, 0});
    measured->Args({500, 1});
}

void withFew(benchmark::internal::Benchmark* measured) {
    measured->ArgNames({"pairs", "dropped"})->ComputeStatistics("best", best)->Args({0, 0});
}

BENCHMARK(frameByPlane)->Args({0, 0})->Apply(withFrames);
BENCHMARK(frameByEveryKind)->ArgName("filters")->Arg(0)->Arg(1)->ComputeStatistics("best", best);
BENCHMARK(frameOnFiltering)->ComputeStatistics("best", best);

void asWhole(benchmark::internal::Benchmark* measured) {
    measured->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)->ComputeStatistics("best", best);
}

BENCHMARK(groupByPlane)->ArgNames({"ports", "released"})->Args({374, 0})->Args({374, 1})->Apply(asWhole);
BENCHMARK(groupByNft)->Apply(asWhole);
BENCHMARK(renameByPlane)->ArgName("pairs")->Arg(34980)->ComputeStatistics("best", best);

void withTunnel(benchmark::internal::Benchmark* measured) {
    measured->ArgNames({"way", "groups", "bits"})->ComputeStatistics("best", best);
    for (const int64_t way : {NONE, OUT, OUT_MARKED, IN}) {
        measured->Args({way, -1, 0})->Args({way, 0, 0})->Args({way, 1, 0})->Args({way, 16, 0});
        if (way != NONE) measured->Args({way, 1, 1})->Args({way, 16, 1})->Args({way, 16, 0xffff});
    }
}

BENCHMARK(frameOverTunnel)->Apply(withTunnel);
BENCHMARK_CAPTURE(frameByHand, nothing, NOTHING)->Apply(withFew);
BENCHMARK_CAPTURE(frameByHand, empty, EMPTY_CHAIN)->Apply(withFew);
BENCHMARK_CAPTURE(frameByHand, set, SET)->Apply(withFrames);
BENCHMARK_CAPTURE(frameByHand, map, MAP)->Apply(withFrames);
BENCHMARK_CAPTURE(frameByHand, flag, FLAG)->Args({0, 1})->Apply(withFew);
BENCHMARK_CAPTURE(frameByHand, ebtables, EBTABLES)->Args({0, 1})->Apply(withFew);
BENCHMARK_CAPTURE(frameByHand, datapath, PROTECTED)->Args({0, 1})->Apply(withFew);
}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    std::string problem = enterNetwork();
    if (problem.empty()) problem = buildSwitch(network, {"p1", "p2"});
    must(problem.empty(), problem);
    // The bridge now knows where every address is.
    must(blocked(network).empty(), "frames do not arrive");
    for (const char* receiver : {"p2", "w"}) close(network.hosts.at(receiver).sockets[0]);
    benchmark::RunSpecifiedBenchmarks();
    dropPlane();
    unlink(tableFile.c_str());
}
