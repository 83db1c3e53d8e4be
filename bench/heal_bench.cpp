// How long a table of the Linux plane that others delete is away, until it stands again with all that it
// held. Runs in a network namespace of its own, which needs root. usage: heal_bench [ROUNDS]
#include <libmnl/libmnl.h>
#include <linux/netfilter/nf_tables.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "host/linux/linux_plane.h"
#include "host/linux/nft_transaction.h"
#include "host/linux/table_watch.h"
#include "tests/linux_switch.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

void must(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "heal_bench: %s\n", what.c_str());
    std::exit(EXIT_FAILURE);
}

uint32_t generation(Filter& filter) {
    uint32_t number = 0;
    must(readGeneration(filter, number) == 0, "the kernel does not number its filter's transactions");
    return number;
}

// Somebody else's deletion, and the next transaction, which is the healing.
double deletion(Filter& other) {
    const uint32_t before = generation(other);
    Batch batch = beginBatch(other);
    nlmsghdr* header = appendMessage(batch, NFT_MSG_DELTABLE, 0);
    mnl_attr_put_strz(header, NFTA_TABLE_NAME, FILTER_TABLE);
    closeMessage(batch, header);
    const auto start = Clock::now();
    must(commitBatch(batch) == 0, "the table cannot be deleted");
    while (generation(other) < before + 2) std::this_thread::yield();
    return Milliseconds(Clock::now() - start).count();
}

// Isolates so many pairs of ports in all.
void isolate(Board& board, uint32_t pairs) {
    static std::vector<std::string> names;
    static uint32_t isolated = 0;
    if (names.empty()) {
        for (uint32_t port = 0; port < 265; ++port) names.push_back("port" + std::to_string(port));
    }
    const auto port = [](uint32_t number) {
        return PlanePort{number, 1, false, false, names[number].c_str(), names[number].c_str(), "", ""};
    };
    std::lock_guard guard(board.lock);
    uint32_t count = 0;
    for (uint32_t src = 0; src < names.size(); ++src) {
        for (uint32_t dst = 0; dst < src && count < pairs; ++dst) {
            if (++count <= isolated) continue;
            must(board.plane.addTwoWay(board.plane.state, port(src), port(dst), {}) == 0,
                 "a pair was refused");
        }
    }
    isolated = pairs;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 200;
    const std::string problem = enterNetwork();
    must(problem.empty(), problem);
    static Board board;
    board.plane = createLinuxPlane();
    const std::string refused = startLinuxPlane(board.plane, {.healing = Healing::watch});
    must(refused.empty(), refused);
    std::thread(watchTable, &board).detach();
    Filter other;
    must(openFilter(other) == 0, "no connection to the filter");
    std::printf("   pairs  median ms  nine tenths  longest\n");
    for (const uint32_t pairs : {1u, 100u, 500u, 34980u}) {
        isolate(board, pairs);
        std::vector<double> times;
        for (int i = 0; i < rounds; ++i) {
            times.push_back(deletion(other));
            std::lock_guard guard(board.lock);  // it has looked at what it laid
        }
        std::sort(times.begin(), times.end());
        std::printf("%8u  %9.2f  %11.2f  %7.2f\n", pairs, times[times.size() / 2],
                    times[times.size() * 9 / 10], times.back());
        std::fflush(stdout);
    }
    std::_Exit(EXIT_SUCCESS);
}
