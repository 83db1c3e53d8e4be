// Small cases, all of them: bit lists, order indexes, and datagrams whose lengths say anything.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "daemon/base/state.h"
#include "platform/route_messages.h"
#include "tests/daemon_driver.h"
#include "tests/invariants.h"

namespace {

// Every pattern of two bytes, alone and behind others.
TEST(SmallCases, BitLists) {
    for (uint32_t pattern = 0; pattern < 1u << 17; ++pattern) {
        const uint32_t bytes = pattern >> 16 == 0 ? 0 : 9;
        const uint32_t front = 8 * bytes, word = pattern & 0xFFFF;
        for (uint32_t n = 0; n < 16; ++n) {
            const uint32_t bit = 0x8000u >> n, seen = word >> (15 - n);
            const uint32_t last =
                seen == 0 ? 0 : front + n + 1 - static_cast<uint32_t>(std::countr_zero(seen));
            Bytes list(bytes + 2);
            list[bytes] = static_cast<uint8_t>(word >> 8);
            list[bytes + 1] = static_cast<uint8_t>(word);
            const uint32_t end = front + n + 1;
            const Bytes cut(list.data(), list.data() + bitListBytes(end));  // nothing may be read behind it
            ASSERT_EQ(bitListLast(cut.data(), end), last);
            ASSERT_EQ(bitListIsEmpty(cut.data(), end), last == 0 ? 1 : 0);
            ASSERT_EQ(bitListTest(cut.data(), front + n), (word & bit) != 0 ? 1 : 0);
            bitListSet(list.data(), front + n);
            ASSERT_EQ(list[bytes] << 8 | list[bytes + 1], word | bit);
            for (int times = 0; times < 2; ++times) bitListClear(list.data(), front + n);
            ASSERT_EQ(list[bytes] << 8 | list[bytes + 1], word & ~bit);
        }
    }
}

// Every index of 12 nodes at most, told by their depths in order: each node is removed, and one inserted
// between any two and behind any one with its key.
TEST(SmallCases, Indexes) {
    const auto keyOf = [](uint32_t number) { return TableKey{number >> 4, number >> 2 & 3, number & 3}; };
    std::vector<std::string> indexes = {""};
    for (size_t at = 0; at < indexes.size() && !HasFailure(); ++at) {
        const auto count = static_cast<uint32_t>(indexes[at].size());
        for (uint32_t change = 0; change < (count < 12 ? 3 * count + 1 : count); ++change) {
            std::array<IndexNode, 14> nodes = {};  // the head first, the one to come last
            std::vector<const IndexNode*> rows, listed;
            for (uint32_t row = 1; row <= count; ++row) rows.push_back(&nodes[row]);
            for (uint32_t each = 0; each < 5 * count; ++each) {  // level by level it needs no balancing
                const uint32_t row = each % count;
                if (indexes[at][row] - 'a' != static_cast<int>(each / count)) continue;
                indexInsert(&nodes[0], &nodes[row + 1], keyOf(2 * row + 1));
            }
            if (change < count) {
                indexRemove(&nodes[change + 1]);
                rows.erase(rows.begin() + change);
            } else {
                indexInsert(&nodes[0], &nodes[count + 1], keyOf(change - count));
                rows.insert(rows.begin() + (change - count + 1) / 2, &nodes[count + 1]);
            }
            std::string depths;
            checkHalf(nodes[0].lower, &nodes[0], 'a', depths);
            for (auto* node = indexFrom(&nodes[0], {}); node != nullptr; node = indexNext(node)) {
                listed.push_back(node);
            }
            EXPECT_EQ(listed, rows) << indexes[at] << " " << change << " " << depths;
            if (std::ranges::count(indexes, depths) == 0) indexes.push_back(depths);
        }
    }
    EXPECT_EQ(indexes.size(), 426u);  // as many as there are such trees
}

// How many of two that say these lengths, one behind the other, lie whole in so many bytes.
uint32_t whole(uint32_t first, uint32_t second, uint32_t least, int64_t bytes) {
    if (first < least || first > bytes) return 0;
    return second < least || second > bytes - rtAligned(first) ? 1 : 2;
}

// Delivers the first bytes of a datagram, nothing behind them, and counts the calls that begin with a word.
size_t callsOf(const Bytes& bytes, uint32_t size, const char* word) {
    if (listIsEmpty(&gPortIsoInfo.ifPairList)) pairJoin(100, 5);
    drainCalls();
    deliver(Bytes(bytes.begin(), bytes.begin() + size));
    return drainCalls({word}).size();
}

TEST(SmallCases, Datagrams) {
    constexpr uint32_t lengths[] = {0,  1,  3,  4,  8,  11, 20, 23, 24,         25,
                                    31, 32, 47, 48, 52, 55, 56, 64, 0x80000000, 0xFFFFFFFF};
    constexpr uint16_t types[] = {DAX_RTM_NEWLINK,      DAX_RTM_DELLINK,     DAX_RTM_CARD_UP,
                                  DAX_RTM_MODE_REFRESH, DAX_RTM_SERIAL_SYNC, DAX_RTM_IF_RESET,
                                  DAX_RTM_RESET};
    const auto put = [](Bytes& bytes, size_t at, const auto& record) {
        if (at + sizeof(record) <= bytes.size()) std::memcpy(bytes.data() + at, &record, sizeof(record));
    };
    ASSERT_EQ(startDaemon(), 0);
    fake.serialSender = 1;
    for (uint32_t each = 0; each < std::size(lengths) * std::size(lengths); ++each) {
        const uint32_t first = lengths[each / std::size(lengths)],
                       second = lengths[each % std::size(lengths)];
        Bytes messages(64);
        put(messages, 28, uint32_t{100});  // the trunk
        put(messages, rtAligned(first), RtMsgHdr{second, DAX_RTM_SERIAL_SYNC, {}});
        for (const uint16_t type : types) {
            put(messages, 0, RtMsgHdr{first, type, {}});
            for (uint32_t size = 0; size <= 64; ++size) {
                const uint32_t handled = whole(first, second, 24, size);
                const uint32_t syncs = type == DAX_RTM_SERIAL_SYNC ? handled : handled / 2;
                ASSERT_EQ(callsOf(messages, size, "mirror"), syncs)
                    << testing::PrintToString(messages) << size;
            }
        }
        const auto attribute = static_cast<uint16_t>(first), next = static_cast<uint16_t>(second);
        for (const uint32_t length : lengths) {
            Bytes link(64);
            put(link, 48 + rtAligned(attribute), RtAttr{next, DAX_RTA_MEMBER_DEL});
            put(link, 48, RtAttr{attribute, DAX_RTA_MEMBER_ADD});
            put(link, 28, uint32_t{100});
            put(link, 0, RtMsgHdr{length, DAX_RTM_NEWLINK, {}});
            for (uint32_t size = 0; size <= 64; ++size) {
                const uint32_t read = length > size ? 0 : whole(attribute, next, 4, int64_t{length} - 48);
                const uint32_t changes =
                    (read >= 1 && attribute >= 8 ? 1 : 0) + (read == 2 && next >= 8 ? 1 : 0);
                ASSERT_EQ(callsOf(link, size, "uni-"), changes) << testing::PrintToString(link) << size;
            }
        }
    }
}

}  // namespace
