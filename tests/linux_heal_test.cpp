// A table that others change or take away: healed where they can, out of their reach where the kernel offers
// it, and handed from one daemon to the next without a gap.
#include "linux_fixture.h"

namespace {

constexpr char BOARD[] = "plane linux\nbridge br0\naccess p3 p4\n";
constexpr char NO_HOOK[] =
    "nft 'flush chain bridge portisolate forward; delete chain bridge portisolate forward; "
    "add chain bridge portisolate forward'";
constexpr char FLUSH[] = "nft flush ruleset";
constexpr char HEALED[] = ": healed, ";

struct LinuxHealTest : LinuxPlaneTest {
    void restartWith(const std::string& mode) {
        if (daemon != 0) stop();
        board = BOARD + mode;
        restart();
        ctlOutput("group add 5 p1 p2");
    }
    bool owns() const { return !linesWith("plane show", " heal=own ").empty(); }
    bool healedTimes(size_t times) const {
        const std::string pattern = "state=ready .* healed=" + std::to_string(times) + "$";
        return eventually([&] { return linesWith("plane show", pattern).size() == 1; });
    }
    size_t told(const std::string& what) const {
        const std::string text = log();
        size_t count = 0;
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
        return count;
    }
};

}  // namespace

TEST_F(LinuxHealTest, MendsWhateverOthersDoToItsTable) {
    ASSERT_EQ(buildSwitch(network, {"p1", "p2", "p3", "p4"}), "");
    const std::string nft = "nft ", table = " bridge portisolate ", chain = table + "forward ";
    const std::string drop = "$(nft -a list chain" + chain + "| awk '/vmap/ { print $NF; exit }')";
    const std::string pon = "$(nft -a list chain" + chain + "| awk '/open_vlans/ { print $NF }')";
    // The rule of PON isolation with another number in it.
    const std::string other =
        "$(nft list chain" + chain +
        "| sed -n '/open_vlans/ { s/0x00000000/0x00080000/; s/packets.*bytes [0-9]*//; p }')";
    const struct {
        std::string done, state, told;
    } cases[] = {
        {FLUSH, "gone", "was deleted from outside"},
        {nft + "add table" + table + "'{ flags dormant; }'", "gone", "was switched off from outside"},
        {nft + "replace rule" + chain + "handle " + drop + " counter", "changed",
         "rule 1 of chain forward was"},
        {nft + "replace rule" + chain + "handle " + pon + " " + other, "changed",
         "rule 2 of chain forward was"},
        {nft + "delete rule" + chain + "handle " + drop, "changed", "rule 1 of chain forward was"},
        {nft + "insert rule" + chain + "accept", "changed", "rule 1 of chain forward was"},
        {NO_HOOK, "changed", "chain forward was changed"},
        {nft + "chain" + chain + "'{ policy drop; }'", "changed", "chain forward was changed"},
        {nft + "add chain" + table + "other", "changed", "chain other was added"},
        {nft + "add set" + table + "other '{ type ifname; }'", "changed", "set other was added"},
        {nft + "delete element" + table + "pairs '{ p1 . p2 }'", "changed", "1 elements were deleted"},
        {nft + "flush map" + table + "pairs", "changed", "elements were deleted"},
        // What opens something is damage only where it is taken back.
        {nft + "add element" + table + "pairs '{ p3 . p4 : accept }'", "", "1 elements that open something"},
    };
    const std::string isolated = "p1>p2 p2>p1", isolatedIn10 = isolated + " p3>p4 p4>p3";
    for (const std::string mode : {"heal off\n", "heal watch\n", "heal on\n"}) {
        restartWith(mode);
        const bool heals = mode != "heal off\n", own = owns();
        EXPECT_TRUE(!own || mode == "heal on\n");
        size_t healed = 0;
        for (const auto& one : cases) {
            SCOPED_TRACE(mode + one.done);
            if (!heals && one.state.empty()) continue;
            const std::string problem = sh(one.done);
            const bool refused = problem.find("Operation not permitted") != std::string::npos;
            EXPECT_EQ(refused ? "" : problem, "");
            EXPECT_EQ(refused, own && one.done != FLUSH);
            if (own) {
                EXPECT_TRUE(healedTimes(0));
            } else if (heals) {
                EXPECT_TRUE(healedTimes(++healed)) << boardAnswer("plane show");
            } else {
                EXPECT_EQ(linesWith("plane show", "^plane name=linux state=" + one.state).size(), 1U);
                EXPECT_EQ(linesWith("plane show", "^note .*" + one.told).size(), 1U);
                EXPECT_NE(boardAnswer("plane restore"), "0\n");
                EXPECT_EQ(linesWith("plane show", "name=linux state=ready").size(), 1U);
            }
            EXPECT_TRUE(own || healed > 10 || log().find(one.told) != std::string::npos) << log();
            EXPECT_EQ(notHeld(), Texts{});
            EXPECT_EQ(blocked(network), isolated);
            EXPECT_EQ(blocked(network, 10), isolatedIn10);
        }
    }
    // What others have taken away keeps nothing from being released.
    restartWith("heal off\n");
    ASSERT_EQ(sh("nft delete element bridge portisolate pairs '{ p1 . p2 }'"), "");
    ctlOutput("group del 5");
    EXPECT_EQ(blocked(network), "");
    EXPECT_EQ(log().find("failed to operate"), std::string::npos) << log();
    // What others add to it isolates nobody for good.
    ASSERT_EQ(sh("nft add element bridge portisolate pairs '{ p1 . w : drop }'"), "");
    EXPECT_EQ(boardAnswer("plane sweep"), "1\n");
    EXPECT_NE(log().find("1 elements were added"), std::string::npos);
}

// With frames all the while. What slips through before a healing is counted, and nothing does where the table
// is the daemon's own.
TEST_F(LinuxHealTest, HealsAgainAndAgainAndSaysSoOnce) {
    constexpr size_t TIMES = 14, TOLD = 10;
    ASSERT_EQ(buildSwitch(network, {"p1", "p2", "p3"}), "");
    for (const char* mode : {"heal watch\n", "heal on\n"}) {
        SCOPED_TRACE(mode);
        restartWith(mode);
        const size_t healings = owns() ? 0 : TIMES;
        EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
        const size_t before = told(HEALED), spells = told("10 times within a minute");
        uint32_t flown = 0, slipped = 0;
        {
            const Stream stream(network, "p1", "p3");
            for (size_t i = 1; i <= TIMES; ++i) {
                ASSERT_EQ(sh(FLUSH), "");
                // To ask the daemon would make it look.
                const auto healed = [&] {
                    slipped += heardOfStreams(network, "p2");
                    return told(HEALED) - before == std::min(i, TOLD);
                };
                EXPECT_TRUE(healings == 0 || (i <= TOLD ? eventually(healed) : healedTimes(i)));
            }
            EXPECT_TRUE(stream.flows());
            flown = stream.heard;
        }
        slipped += heardOfStreams(network, "p2");
        std::printf("%s%u frames slipped through beside %u that may pass\n", mode, slipped, flown);
        EXPECT_LE(slipped, healings == 0 ? 0 : flown / 3);
        EXPECT_NE(told("was deleted from outside by nft, process "), 0U) << log();
        EXPECT_EQ(told(HEALED) - before, std::min(healings, TOLD)) << log();
        EXPECT_EQ(told("10 times within a minute") - spells, healings == 0 ? 0U : 1U);
        EXPECT_EQ(told("healed 0 times"), 0U);
        EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
        EXPECT_EQ(notHeld(), Texts{});
    }
}

// Left over is all that the former one held, and heals as what is asked for does.
TEST_F(LinuxHealTest, HandsItsTableOnWithoutAGap) {
    ASSERT_EQ(buildSwitch(network, {"p1", "p2", "p3"}), "");
    restartWith("heal off\n");
    EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
    uint64_t counted = 1;
    for (const char* mode : {"heal on\n", "heal on\n", "heal off\n", "heal watch\n"}) {
        SCOPED_TRACE(mode);
        const Stream stream(network, "p1", "p3");
        EXPECT_TRUE(stream.flows());
        stop(SIGKILL);
        EXPECT_TRUE(stream.flows());
        board = BOARD + std::string(mode);
        restart();
        EXPECT_TRUE(stream.flows());
        const Texts left = linesWith("plane show", "src=p1 dst=p2 .*state=left-over packets=");
        ASSERT_EQ(left.size(), 1U) << boardAnswer("plane show");
        const uint64_t packets = std::stoull(left[0].substr(left[0].find("packets=") + 8));
        EXPECT_GT(packets, counted);
        counted = packets;
        EXPECT_EQ(sh("nft list table bridge portisolate | grep -q 'flags owner'").empty(), owns());
    }
    ASSERT_EQ(sh(FLUSH), "");
    EXPECT_TRUE(healedTimes(1));
    EXPECT_EQ(linesWith("plane show", "state=left-over").size(), 2U);
    EXPECT_EQ(blocked(network), "p1>p2 p2>p1");
    EXPECT_EQ(boardAnswer("plane sweep"), "2\n");
    EXPECT_EQ(blocked(network), "");
}
