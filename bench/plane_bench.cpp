// What the Linux plane costs: a pair isolated and released again, compared with the same transactions written
// by hand, and a frame from one port of a bridge to another, compared with a bridge without the plane's
// table. Runs in a network namespace of its own, which needs root.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <libmnl/libmnl.h>
#include <libnftnl/common.h>
#include <libnftnl/set.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
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
    if (plane.state != nullptr) plane.destroy(plane.state);
    plane = {};
    sh("nft delete table bridge portisolate");
}

// Makes the plane hold so many pairs, of ports that the bridge does not have.
void startWith(benchmark::State& state) {
    static int64_t held = 0;
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
void sendFrames(benchmark::State& state) {
    const std::string frame = streamFrame(network, "p1", "p2");
    iovec part = {const_cast<char*>(frame.data()), frame.size()};
    mmsghdr messages[FRAMES] = {};
    for (mmsghdr& message : messages) message.msg_hdr = {nullptr, 0, &part, 1, nullptr, 0, 0};
    for (auto _ : state)
        must(sendmmsg(network.hosts.at("p1").sockets[0], messages, FRAMES, 0) == FRAMES,
             "frames cannot be sent");
    state.counters["per_frame"] = benchmark::Counter(
        FRAMES, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void frameWithoutTable(benchmark::State& state) {
    dropPlane();
    sendFrames(state);
}

void frameWithTable(benchmark::State& state) {
    startWith(state);
    sendFrames(state);
}

double best(const std::vector<double>& rounds) {
    return *std::min_element(rounds.begin(), rounds.end());
}

void withPairs(benchmark::internal::Benchmark* measured) {
    measured->ArgName("pairs")->Arg(0)->Arg(500)->Arg(34980)->ComputeStatistics("best", best);
}

BENCHMARK(pairByPlane)->Apply(withPairs);
BENCHMARK(pairByHand)->Apply(withPairs);
BENCHMARK(frameWithoutTable)->ComputeStatistics("best", best);
BENCHMARK(frameWithTable)->Apply(withPairs);
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
}
