// The operator's command: how it reads its words, tells what it found, and takes back a refused addition. The
// daemon's place is taken by a small table of rows.
#include <gtest/gtest.h>

#include <map>

#include "api/records.h"
#include "ctl/args.h"
#include "ctl/board_client.h"
#include "ctl/client.h"
#include "ctl/commands.h"
#include "ctl/matrix.h"
#include "ctl/output.h"
#include "ctl/rows.h"
#include "ctl/settings.h"
#include "ctl/statuses.h"
#include "frame/status.h"

namespace {

using Words = std::vector<std::string>;

TEST(CtlArgs, NumbersAreStrict) {
    uint32_t number = 0;
    for (const char* good : {"0", "7", "4294967295", "0x0", "0xffffFFFF"}) {
        EXPECT_TRUE(parseNumber(good, number)) << good;
    }
    EXPECT_EQ(number, 0xFFFFFFFFu);
    for (const char* bad :
         {"", "-1", "+1", " 1", "1 ", "05", "0x", "0x1g", "4294967296", "0x100000000", "1.0"}) {
        EXPECT_FALSE(parseNumber(bad, number)) << bad;
    }
    int64_t milliseconds = 0;
    EXPECT_TRUE(parseSeconds("0.25", milliseconds));
    EXPECT_EQ(milliseconds, 250);
    EXPECT_TRUE(parseSeconds("12", milliseconds));
    EXPECT_EQ(milliseconds, 12000);
    for (const char* bad : {"", "0", "0.0", "-1", "1.", ".5", "1e3", "86401", "99999999999"}) {
        EXPECT_FALSE(parseSeconds(bad, milliseconds)) << bad;
    }
    std::vector<uint32_t> words;
    EXPECT_TRUE(parseWords("5,0x10,0", words));
    EXPECT_EQ(words, (std::vector<uint32_t>{5, 16, 0}));
    std::string bytes;
    EXPECT_TRUE(parseHex("00fF", bytes));
    EXPECT_EQ(bytes, std::string("\0\xff", 2));
    EXPECT_FALSE(parseHex("00fF1", bytes));
    EXPECT_FALSE(parseHex("0g", bytes));
}

TEST(CtlArgs, RangesCountTheLastNumberUp) {
    EXPECT_EQ(expandRange("ge1/1-3"), (Words{"ge1/1", "ge1/2", "ge1/3"}));
    EXPECT_EQ(expandRange("9-11"), (Words{"9", "10", "11"}));
    EXPECT_EQ(expandRange("p08-10"), (Words{"p08", "p09", "p10"}));
    EXPECT_EQ(expandRange("a-b2-2"), (Words{"a-b2"}));
    EXPECT_EQ(expandRange("0-4095").size(), RANGE_MAX);
    EXPECT_EQ(expandRange("4294967294-4294967295").size(), 2u);
    for (const char* none : {"", "-", "ge1/1", "ge-1", "3-1", "1-x", "0-4096", "1-99999999999", "1-"}) {
        EXPECT_TRUE(expandRange(none).empty()) << none;
    }
}

TEST(CtlArgs, AbbreviationsMustBeUnambiguous) {
    const Words names = {"pair", "pon", "port", "ports"};
    std::string error;
    EXPECT_EQ(pickName(names, "pa", "object", error), 0u);
    EXPECT_EQ(pickName(names, "port", "object", error), 2u);
    EXPECT_EQ(error, "");
    pickName(names, "po", "object", error);
    EXPECT_EQ(error, "\"po\" is ambiguous: pon, port or ports");
    pickName(names, "piar", "object", error);
    EXPECT_EQ(error, "no object \"piar\"; did you mean pair?");
    pickName(names, "", "object", error);
    EXPECT_EQ(error, "no object \"\"; there are pair, pon, port and ports");
}

TEST(CtlArgs, SignaturesSayWhatIsWrong) {
    const struct {
        const char* signature;
        Words arguments;
        std::vector<GivenOption> options;
        const char* wrong;
    } cases[] = {
        {"GROUP INTERFACE...", {"5", "a", "b", "c"}, {}, ""},
        {"GROUP INTERFACE...", {"5"}, {}, "INTERFACE... is missing"},
        {"GROUP [INTERFACE...] --vlan VLAN", {"5"}, {{"--vlan", "3"}}, ""},
        {"GROUP [INTERFACE...] --vlan VLAN", {"5"}, {}, "option --vlan is missing"},
        {"[GROUP] [--vlan VLAN]", {}, {}, ""},
        {"[GROUP] [--vlan VLAN]", {"1", "2"}, {}, "\"2\" is one argument too many"},
        {"[GROUP] [--vlan VLAN]", {}, {{"--vlan", "1"}, {"--vlan", "2"}}, "option --vlan is given twice"},
        {"", {}, {{"--count", "1"}}, "there is no option --count here"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(checkSignature(each.signature, each.arguments, each.options), each.wrong) << each.signature;
    }
    CommandLine line;
    EXPECT_EQ(parseCommandLine({"--json", "group", "--timeout=0.5", "--vlan", "7", "--", "--help"}, line),
              "");
    EXPECT_TRUE(line.json && !line.help && line.timeoutMs == 500 &&
                *optionValue(line.options, "--vlan") == "7");
    EXPECT_EQ(line.words, (Words{"group", "--help"}));
    EXPECT_NE(parseCommandLine({"--timeout"}, line), "");
    EXPECT_NE(parseCommandLine({"--timeout", "never"}, line), "");
}

TEST(CtlTable, EveryExampleFitsItsCommandAndWrongUseIsTold) {
    for (const Command& command : commandTable()) {
        CommandLine line;
        ASSERT_EQ(parseCommandLine(splitWords(command.example), line), "");
        const size_t named = *command.verb == '\0' ? 1 : 2;
        EXPECT_EQ(line.words[0], command.object);
        EXPECT_TRUE(named == 1 || line.words[1] == command.verb) << command.example;
        line.words.erase(line.words.begin(), line.words.begin() + static_cast<std::ptrdiff_t>(named));
        EXPECT_EQ(checkSignature(command.signature, line.words, line.options), "") << command.example;
    }
    for (const char* wrong : {"", "p list", "group", "group frob", "group add", "mode set 1 2", "nonsense"}) {
        EXPECT_EQ(runCommandLine(splitWords(wrong)), Exit::usage) << wrong;
    }
}

TEST(CtlClient, RepliesWhoseLengthsLieAreRefused) {
    const std::string frame = encodeRequest({6, 1, "abcdefghijkl", {}, 4});
    ASSERT_EQ(frame.size(), 4u + 4 * 4 + 12);
    EXPECT_EQ(wordAt(frame, 0), frame.size() - 4);
    EXPECT_EQ(wordAt(frame, 7), 4u);  // the capacity, with no value behind it
    const std::vector<std::vector<uint32_t>> bad = {
        {}, {0, 0}, {0, 4, 0}, {0, 0, 4}, {0, 0xFFFFFFFF, 0}, {0, 0, 0xFFFFFFFC, 1}, {0, 0, 0, 0}};
    for (const std::vector<uint32_t>& words : bad) {
        std::string body;
        for (const uint32_t word : words) {
            appendWord(body, word);
        }
        Reply reply;
        EXPECT_FALSE(decodeReply(body, reply)) << words.size();
    }
    std::string body;
    for (const uint32_t word : {0xFFFFFFFFu, 0u, 4u, 9u}) {
        appendWord(body, word);
    }
    Reply reply;
    ASSERT_TRUE(decodeReply(body, reply));
    EXPECT_TRUE(reply.status == -1 && reply.index.empty() && wordAt(reply.value, 0) == 9);
}

TEST(CtlOutput, ForeignTextIsTamed) {
    EXPECT_EQ(safeText("a\033[1m\xff\xc2\x9b\xc3\xa4%s"), "a\\x1b[1m\\xff\\xc2\\x9b\xc3\xa4%s");
    EXPECT_EQ(jsonString("\"\\\n\xff\xc3\xa4\xed\xa0\x80"),
              "\"\\\"\\\\\\u000a\\ufffd\xc3\xa4\\ufffd\\ufffd\\ufffd\"");
    EXPECT_EQ(describeStatus(STATUS_BAD_VLAN), "0x03E8002A: bad VLAN id: 1 to 4095 are valid");
    EXPECT_EQ(describeStatus(-77), "0xFFFFFFB3: unknown status");
    EXPECT_EQ(vlansOfBitList("\x40\x01"), (std::vector<uint32_t>{1, 15}));
    BoardInterface board;
    EXPECT_TRUE(
        parseBoardInterface("number=101 name=lag1 members=ge1/3,ge1/4 trunk=- present=yes vlan=-", board));
    EXPECT_TRUE(board.number == 101 && board.trunk.empty() && board.present);
    EXPECT_EQ(board.members, (Words{"ge1/3", "ge1/4"}));
    EXPECT_FALSE(parseBoardInterface("number=x name=lag1", board));
    Matrix matrix;
    EXPECT_TRUE(parseMatrix({"a bb", "a -x", "bb o-"}, matrix));
    EXPECT_EQ(renderMatrix(matrix), (Words{"    a  bb", "a   -  x", "bb  o  -"}));
    for (const Words& bad : {Words{}, {"a b", "a -x"}, {"a", "b -"}, {"a", "a -x"}, {"a", "a ?"}}) {
        Matrix rejected;
        EXPECT_FALSE(parseMatrix(bad, rejected));
    }
}

// A daemon of one group table, which refuses to activate one member and to answer at all after some requests.
struct FakeDaemon {
    std::map<uint32_t, uint32_t> rows;  // of group 5: status by member
    uint32_t refused = 0;
    uint32_t answers = UINT32_MAX;
    bool stuck = false;  // get next does not advance
};

Reply answer(FakeDaemon& daemon, const Request& request) {
    const uint32_t member = wordAt(request.index, 0);
    auto row = daemon.rows.find(member);
    if (request.opcode == OP_GROUP_SET) {
        const uint32_t action = wordAt(request.value, 0);
        if (action == ROW_DESTROY) {
            daemon.rows.erase(member);
        } else if (action == ROW_ACTIVATE && member == daemon.refused) {
            return {STATUS_GROUP_FULL, {}, {}};
        } else {
            daemon.rows[member] = action == ROW_ACTIVATE ? STATUS_PROGRAMMED : STATUS_CREATED;
        }
        return {};
    }
    if (request.opcode == OP_GROUP_GET_NEXT) {
        row = daemon.stuck ? row : daemon.rows.upper_bound(member);
    } else if (request.opcode == OP_GROUP_GET_FIRST && (wordAt(request.index, 2) & MATCH_IF_UNIT) == 0) {
        row = daemon.rows.begin();
    }
    if (row == daemon.rows.end()) {
        return {STATUS_NOT_FOUND, {}, {}};
    }
    Reply reply;
    if (request.opcode == OP_GROUP_GET) {
        appendWord(reply.value, row->second);
    } else {
        appendWord(reply.index, row->first);
        reply.index += request.index.substr(4);
    }
    return reply;
}

struct Rows : testing::Test {
    FakeDaemon daemon;
    Session session;
    std::vector<Row> found;
    void SetUp() override {
        session.interfacesAsked = true;  // no board to ask for names
        session.exchange = [this](const Request& request, Reply& reply) {
            reply = answer(daemon, request);
            return daemon.answers-- > 0;
        };
    }
};

TEST_F(Rows, RefusedAdditionLeavesWhatWasThereBefore) {
    daemon.rows = {{1, STATUS_PROGRAMMED}, {2, STATUS_CREATED}};
    daemon.refused = 9;
    testing::internal::CaptureStderr();
    EXPECT_EQ(addRows(session, GROUP_ROWS, {5, 0}, {1, 2, 3, 4, 9, 6}, true), Exit::refused);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "portisolatectl: group 5, 9: activate refused: " + describeStatus(STATUS_GROUP_FULL) +
                  "\nportisolatectl: group 5: taken back again: 9, 4 and 3\n"
                  "portisolatectl: group 5: was there before and stays active: 2\n");
    EXPECT_EQ(daemon.rows, (std::map<uint32_t, uint32_t>{{1, STATUS_PROGRAMMED}, {2, STATUS_PROGRAMMED}}));
}

TEST_F(Rows, LostDaemonIsToldWithWhatIsLeftBehind) {
    daemon.answers = 3;  // one member's look-up, create and activate
    session.commands.failure = "gone";
    testing::internal::CaptureStderr();
    EXPECT_EQ(addRows(session, GROUP_ROWS, {5, 0}, {3, 4}, true), Exit::unreachable);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_NE(told.find(": gone\n"), std::string::npos) << told;
    EXPECT_NE(told.find("group 5: added before that, and not taken back: 3\n"), std::string::npos) << told;
}

TEST_F(Rows, WalkEndsWhenTheKeyDoesNotAdvance) {
    daemon.rows = {{1, STATUS_PROGRAMMED}, {7, STATUS_CREATED}};
    const RowScope group{5, 0};
    ASSERT_EQ(collectRows(session, GROUP_ROWS, &group, true, found), Exit::done);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_TRUE(found[1].member == 7 && found[1].scope.number == 5 && found[1].status == STATUS_CREATED);
    daemon.stuck = true;
    testing::internal::CaptureStderr();
    EXPECT_EQ(collectRows(session, GROUP_ROWS, &group, true, found), Exit::unreachable);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("does not advance"), std::string::npos);
}

}  // namespace
