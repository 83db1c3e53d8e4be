// The operator's command: how it reads its words, tells what it found, and takes back a refused addition. The
// daemon's place is taken by a small table of rows.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "ctl/client/board_client.h"
#include "ctl/client/client.h"
#include "ctl/client/matrix.h"
#include "ctl/client/plane.h"
#include "ctl/client/printouts.h"
#include "ctl/client/rows.h"
#include "ctl/client/settings.h"
#include "ctl/client/statuses.h"
#include "ctl/commands/commands.h"
#include "ctl/commands/complete.h"
#include "ctl/commands/monitor.h"
#include "ctl/commands/why.h"
#include "ctl/configuration/config_plan.h"
#include "ctl/text/args.h"
#include "ctl/text/output.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "wire/records.h"
#include "wire/status.h"

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

std::string bytesOf(const std::vector<uint32_t>& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(uint32_t)};
}

TEST(CtlClient, RepliesWhoseLengthsLieAreRefused) {
    const std::vector<std::vector<uint32_t>> bad = {
        {}, {0, 0}, {0, 4, 0}, {0, 0, 4}, {0, 0xFFFFFFFF, 0}, {0, 0, 0xFFFFFFFC, 1}, {0, 0, 0, 0}};
    Reply reply;
    for (const std::vector<uint32_t>& words : bad) {
        EXPECT_FALSE(decodeReply(bytesOf(words), reply)) << words.size();
    }
    ASSERT_TRUE(decodeReply(bytesOf({0xFFFFFFFF, 0, 4, 9}), reply));
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
    EXPECT_FALSE(parseBoardInterface("number=x name=lag1", board));
    Matrix matrix;
    EXPECT_TRUE(parseMatrix({"a bb", "a -o", "bb x-"}, matrix));
    matrix.names[0] = "<a&\"\x1b";
    EXPECT_NE(matrixSvg(matrix).find("<title>bb to &lt;a&amp;&quot;\\x1b: "), std::string::npos);
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
        appendWord(reply.index, 5);
        reply.index += request.index.substr(8);
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

// A board of four interfaces and what a text means on it.
struct Config : testing::Test {
    Session session;
    void SetUp() override {
        session.interfacesAsked = true;
        for (const uint32_t number : {1u, 2u, 3u, 101u}) {
            BoardInterface interface;
            interface.number = number;
            interface.name = number < 100 ? formatText("ge1/%u", number) : "lag1";
            session.interfaces.push_back(interface);
        }
    }
    Configuration settle(const std::string& text, std::string* mistakes = nullptr) {
        ConfigFile file = parseConfig(text);
        Configuration configuration;
        settleConfig(session, file, configuration);
        checkGroupNumbers(file, 16);
        for (const Mistake& one : file.mistakes) {
            const std::string told =
                formatText("%u:%u %s\n", one.place.line, one.place.column, one.text.c_str());
            mistakes != nullptr ? void(*mistakes += told) : void(ADD_FAILURE() << text << ": " << told);
        }
        return configuration;
    }
    // The steps in order, a bar behind each part of the plan.
    std::string plan(const std::string& running, const std::string& wanted) {
        const Plan made = planChanges(settle(running), settle(wanted));
        std::string text;
        for (const std::vector<Step>& part : {made.before, made.early, made.release, made.after}) {
            for (const Step& step : part) {
                const char* const signs[] = {"m", "p", "-", "c", "+", "a"};
                text += signs[static_cast<size_t>(step.action)];
                text += step.number != 0 ? std::to_string(step.number)
                                         : formatText("%u/%u", step.row.scope.number, step.row.member);
                text += ' ';
            }
            text += "| ";
        }
        return text;
    }
};

TEST_F(Config, EveryMistakeIsToldWithItsPlace) {
    const struct {
        const char* text;
        const char* mistakes;
    } cases[] = {
        {"", ""},
        {"# nothing\r\n\t\n  mode 2 # two\r\ngroup 5 ge1/1-3\ngroup 5 lag1 #x", ""},
        {"mode\n\tmode x y\nmode 1 2",
         "1:6 mode is missing here\n2:7 \"x\" is no mode: write a number from 0 up\n"
         "3:8 \"2\" is one word too many\n"},
        {"gruop 1 ge1/1", "1:1 \"gruop\" begins no line; did you mean group?\n"},
        {"created\ncreated pon off 1",
         "1:9 group, vlan-group or pair is missing here\n"
         "2:9 only groups, VLAN groups and pairs can be created without isolating\n"},
        {"group 17 ge1/1", "1:7 the daemon's group numbers run from 1 to 16\n"},
        {"group 5\ngroup 5 ge1/9",
         "1:9 an interface is missing here\n"
         "2:9 no interface \"ge1/9\"; did you mean ge1/1, ge1/2 or ge1/3?\n"},
        {"group 5 ge1/1\ncreated group 5 ge1/1-2", "2:17 ge1/1 is named here before, in line 1\n"},
        {"group 5 ge1/1\nvlan-group 5 vlan 7 ge1/1\nvlan-group 6 vlan 7 1\nvlan-group 6 vlan 8 1",
         "2:12 number 5 serves a group without a VLAN in line 1; take another\n"
         "4:12 number 6 serves VLAN 7 in line 3; take another\n"},
        {"vlan-group 6 vlan 4096 1\nvlan-group 6 in 7 1",
         "1:19 \"4096\" is no VLAN: 1 to 4095 are\n2:14 \"in\" in place of \"vlan\"\n"},
        {"pair lag1 ge1/1\npair 1 to lag1 ge1/1\npair ge1/1-2 to lag1",
         "1:11 \"ge1/1\" in place of \"to\"\n2:16 ge1/1 is its own target\n"
         "3:6 one source is wanted here, and the range holds several\n"},
        {"pair 1 to 2\ngroup 3 1-3", "1:11 ge1/1 and ge1/2 share group 3, so they cannot be a pair\n"},
        {"pon off 5-7 6 0 x",
         "1:13 VLAN 6 is named before\n1:15 \"0\" is no VLAN: 1 to 4095 are\n"
         "1:17 \"x\" is no VLAN: 1 to 4095 are\n"},
        {"mode 1\nmode 2", "2:6 the mode is set before, in line 1\n"},
        {"\xc3\xa4 \xff\nmode 1 \xc3\xa4\xc3\xa4 z",
         "1:1 \"\xc3\xa4\" begins no line; there are created, mode, group, vlan-group, pair and pon\n"
         "2:8 \"\xc3\xa4\xc3\xa4\" is one word too many\n"},
    };
    for (const auto& each : cases) {
        std::string mistakes;
        settle(each.text, &mistakes);
        EXPECT_EQ(mistakes, each.mistakes) << each.text;
    }
    EXPECT_EQ(parseConfig(std::string(CONFIG_TEXT_MAX + 1, '\n')).mistakes.size(), 1u);
}

TEST_F(Config, WrittenLinesMeanTheSameAgain) {
    session.interfaces[1].name = "2-4";  // looks like a range of numbers
    session.interfaces[2].name = "#3";   // looks like a comment
    const std::string text =
        "mode 2\ngroup 5 ge1/1 2 3 lag1\ncreated group 6 70-72\nvlan-group 7 vlan 10 ge1/1 lag1\n"
        "pair 2 to 70-72\npon off 1 30-33 4095\n";
    std::string again;
    for (const std::string& line : configLines(session, settle(text))) {
        again += line + "\n";
    }
    EXPECT_EQ(again, text);
}

TEST_F(Config, RemovalsWaitForTheClaimsThatReplaceThem) {
    const struct {
        const char* running;
        const char* wanted;
        const char* steps;  // before | tried early | release | after
    } cases[] = {
        {"group 5 1-3", "group 5 1-3", "| | | | "},
        {"mode 1\npon off 8", "mode 2\npon off 9", "p8 | m2 | | p9 | "},
        // Another number for the same ports, and for some of them: only what is isolated again waits.
        {"group 5 1-2", "group 6 1-2", "| +6/1 +6/2 | -5/1 -5/2 | | "},
        {"group 5 1-3", "group 6 1-2 101", "-5/3 | +6/1 +6/2 | -5/1 -5/2 | +6/101 | "},
        {"group 5 1-3\ngroup 6 1-2", "group 6 1-2", "-5/1 -5/2 -5/3 | | | | "},
        {"group 5 1-2", "group 5 2-3", "-5/1 | | | +5/3 | "},
        // A claim of another scope would stay under the old one.
        {"vlan-group 5 vlan 9 1-2", "group 6 1-2", "-5/1 -5/2 | | | +6/1 +6/2 | "},
        {"vlan-group 5 vlan 9 1-2\ngroup 3 1 101", "vlan-group 6 vlan 9 1-2\ngroup 7 1-2 101",
         "| +7/101 +6/1 +6/2 | -3/1 -3/101 -5/1 -5/2 | +7/1 +7/2 | "},
        // Pairs and groups exclude each other, pairs and VLAN groups do so in one order only.
        {"pair 1 to 2", "group 5 1-2", "-1/2 | | | +5/1 +5/2 | "},
        {"vlan-group 5 vlan 9 1-2", "pair 1 to 2", "| +1/2 | -5/1 -5/2 | | "},
        // A created row becomes active in place; the way back is a new entry, behind all activations.
        {"created group 5 1-2", "group 5 1-2", "| | | a5/1 a5/2 | "},
        {"group 5 1-3", "created group 5 1\ngroup 5 2-3 101", "-5/1 | | | +5/101 c5/1 | "},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(plan(each.running, each.wanted), each.steps) << each.running << " -> " << each.wanted;
    }
}

// A record as the monitor carries it: in hexadecimal.
std::string hexOf(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        text += formatText("%02x", static_cast<unsigned char>(byte));
    }
    return text;
}

TEST_F(Config, HappeningsBecomeSentences) {
    IsolateCmdData data{};
    data.dstIfUnit = 101;
    data.vid = 10;
    data.grpNo = 5;
    RtMsgHdr header{};
    header.length = sizeof(header);
    header.type = DAX_RTM_RESET;
    const auto recordOf = [](const auto& record) {
        return hexOf({reinterpret_cast<const char*>(&record), sizeof(record)});
    };
    const std::string isolate =
        formatText("hardware call=daxIfSyncApi ifUnit=1 opcode=44 attrId=%u data=", DAX_ISO_BI_VLAN_ADD);
    const struct {
        std::string line;
        const char* kind;
        const char* sentence;
    } cases[] = {
        {"request status=0 frame=" + hexOf(bytesOf({OP_GROUP_SET, 1, 12, 1, 5, 0, 4, ROW_CREATE})), "request",
         "group 5, ge1/1: create"},
        {"request frame=" + hexOf(bytesOf({OP_PAIR_SYNC, 0, 12, 1, 101, 0, 4, ROW_DESTROY})), "request",
         "from the peer: pair ge1/1 to lag1: destroy"},
        {"request frame=" + hexOf(bytesOf({OP_VLAN_GROUP_GET_NEXT, 0, 16, 1, 7, 10, 0, 0})), "request",
         "vlan-group 7 in VLAN 10, ge1/1: get next"},
        {"request frame=" + hexOf(bytesOf({OP_SCALAR_SET, SCALAR_MODE, 0, 4, 1})), "request",
         "scalar mode: set to 1"},
        {"request frame=" + hexOf(bytesOf({OP_GROUP_SET, 1, 0xFFFFFFFF, 0})), "request",
         "unreadable, opcode 4"},
        {"request frame=0a", "request", "unreadable"},
        {isolate + recordOf(data), "hardware", "isolate ge1/1 and lag1, group 5 in VLAN 10"},
        {isolate + "00", "hardware", "isolate ge1/1 and 0, group 0"},
        {"hardware seq=3 call=daxHwilIfGet status=0 ifUnit=1", "query", "daxHwilIfGet ifUnit=1"},
        {"event group=42 messages=" + recordOf(header) + "0102", "event",
         "reset of the configuration; 2 bytes that are no message"},
        {"log priority=4 channel=host text=a b=c  d", "log", "host: a b=c  d"},
        {"dropped count=7", "dropped", ""},
    };
    for (const auto& each : cases) {
        Happening happening;
        ASSERT_TRUE(readHappening(session, each.line, happening)) << each.line;
        EXPECT_EQ(happening.kind, each.kind);
        EXPECT_EQ(happening.sentence, each.sentence);
    }
    for (const char* bad : {"", "frob a=1", "log nothing", "event time=x", "hardware status=-"}) {
        Happening happening;
        EXPECT_FALSE(readHappening(session, bad, happening)) << bad;
    }
}

TEST(CtlPrintouts, AreTakenApart) {
    const auto settings = readSettings("\r\n[X] info:\n\r mode: 2\n\r p2p: 1-2\r\n p2p: 7\r\n");
    ASSERT_EQ(settings.size(), 2u);
    EXPECT_EQ(settings[1], (std::pair<std::string, std::string>("p2p", "1-2,7")));
    const auto pairs =
        readPairs("\r\n[X] info:\n\r  src 1, dst 30, ref:\r\n80 01 \r\n00 02 \r\n  src 2, dst 3, ref:\r\n");
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_EQ(pairs[0].groups, (std::vector<uint32_t>{1, 16, 31}));
    EXPECT_TRUE(pairs[1].source == 2 && pairs[1].target == 3 && pairs[1].groups.empty());
    EXPECT_EQ(readNumbers("x\n\r  isoGrpNo 5 vlan 10 -> ifUnit:3\r\nserial 0 -> ifunit:4\r\n"),
              (std::vector<std::vector<uint32_t>>{{5, 10, 3}, {0, 4}}));
}

// Traffic between ge1/1 (or a trunk of ge1/2 and ge1/3) and others, by the tables alone.
TEST_F(Config, TablesAreJudgedPortByPort) {
    Tables tables;
    for (BoardInterface& interface : session.interfaces) {
        interface.kind = "ethernet";
        interface.access = interface.number == 1;
        interface.present = true;
    }
    BoardInterface& lag = session.interfaces[3];
    lag.kind = "trunk";
    lag.members = {"ge1/2", "ge1/3"};
    session.interfaces[1].trunk = session.interfaces[2].trunk = lag.name;
    BoardInterface pon = session.interfaces[0];
    pon.number = 4;
    pon.name = "ge1/4";
    session.interfaces.push_back(pon);
    tables.interfaces = session.interfaces;
    const struct {
        const char* text;
        uint32_t from, to, vlan;
        bool sourceToPort, targetToPort;
        const char* verdict;
    } cases[] = {
        {"group 5 1 101", 1, 101, 0, true, true, "blocked"},
        {"group 5 1 101", 1, 2, 0, true, true, "blocked"},
        {"group 5 1 101", 1, 2, 0, false, false, "forwards"},  // the trunk's own entry
        {"group 5 1 101", 1, 101, 0, false, false, "blocked"},
        {"group 5 1 101", 2, 1, 0, false, true, "blocked"},
        {"group 5 1 101", 4, 101, 0, true, true, "forwards"},
        {"group 5 1 2", 1, 101, 0, true, true, "partly"},
        {"group 5 1\ncreated group 5 101", 1, 101, 0, true, true, "partly"},  // claimed for ge1/3
        {"created group 5 1 101", 1, 101, 0, true, true, "forwards"},
        {"vlan-group 5 vlan 7 1 101", 1, 101, 0, true, true, "forwards"},
        {"vlan-group 5 vlan 7 1 101", 1, 101, 8, true, true, "forwards"},
        {"vlan-group 5 vlan 7 1 101", 101, 1, 7, true, true, "blocked"},
        {"pair 1 to 101", 1, 101, 0, false, false, "blocked"},
        {"pair 1 to 101", 101, 1, 0, true, true, "forwards"},
        {"pair 101 to 1", 2, 1, 0, false, true, "forwards"},
        {"created pair 1 to 101", 1, 101, 0, true, true, "forwards"},
        {"", 1, 4, 0, true, true, "forwards"},
        {"", 1, 4, 7, true, true, "blocked"},
        {"pon off 7", 1, 4, 7, true, true, "forwards"},
        {"", 1, 101, 7, true, true, "forwards"},
    };
    tables.claims[{1, 3}] = {5};
    for (const auto& each : cases) {
        tables.configuration = settle(each.text);
        tables.sourceTrunkToPort = each.sourceToPort;
        tables.targetTrunkToPort = each.targetToPort;
        const Judgement judgement = judgeTables(tables, each.from, each.to, each.vlan);
        EXPECT_EQ(judgement.verdict, each.verdict) << each.text << " " << each.from << " to " << each.to;
        EXPECT_EQ(judgement.reasons.empty(), judgement.verdict == "forwards") << each.text;
    }
    // PON isolation holds a trunk that is marked, whatever its members are.
    tables.interfaces[3].access = true;
    EXPECT_EQ(judgeTables(tables, 1, 101, 7).verdict, "blocked");
}

TEST_F(Config, PlaneIsToldByWhatDiffers) {
    const char* const left = "entry kind=bi src=1 dst=101 vlan=- state=left-over packets=- bytes=-";
    const struct {
        Words lines;
        const char* told;
        Exit exit;
    } cases[] = {
        {{"plane name=linux state=ready", "note ge1/1 bypasses\033 it", left,
          "entry kind=uni src=br=0 dst=9 vlan=- state=missing packets=0 bytes=0",
          "entry kind=pon-off src=- dst=- vlan=7 state=held packets=3 bytes=5000000000"},
         "plane linux: ready\nnote: ge1/1 bypasses\\x1b it\n"
         "KIND     FROM  TO   VLAN  STATE      PACKETS  BYTES\n"
         "two-way  1     101  all   left over  -        -\n"
         "one-way  br=0  9    all   MISSING    0        0\n"
         "PON off  -     -    7     held       3        5000000000\n"
         "1 held, 1 left over, 1 MISSING; 3 packets dropped\n"
         "`portisolatectl plane restore` puts back what is missing\n"
         "`portisolatectl plane sweep` removes what is left over, once all that is wanted is configured "
         "again\n",
         Exit::refused},
        {{"plane name=linux state=gone"},
         "plane linux: gone\nno entries\n"
         "`portisolatectl plane restore` puts back what is missing\n",
         Exit::refused},
    };
    for (const auto& each : cases) {
        PlaneReport report;
        ASSERT_TRUE(parsePlane(session, each.lines, report)) << each.told;
        testing::internal::CaptureStdout();
        EXPECT_EQ(tellPlane(report, false), each.exit);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), each.told);
    }
    const std::string plane = "plane name=sim state=ready";
    PlaneReport report;
    ASSERT_TRUE(parsePlane(session, {plane, left}, report));
    testing::internal::CaptureStdout();
    EXPECT_EQ(tellPlane(report, true), Exit::done) << "what is left over isolates too much, not too little";
    EXPECT_NE(testing::internal::GetCapturedStdout().find(
                  R"("to":"lag1","vlan":null,"state":"left-over","packets":null)"),
              std::string::npos);
    for (const Words& bad : {Words{},
                             {left},
                             {"plane name=sim"},
                             {plane, "entry"},
                             {plane, "what"},
                             {plane, "entry kind=tri src=1 dst=2 vlan=- state=held packets=- bytes=-"},
                             {plane, "entry kind=bi src=1 dst=2 vlan=x state=held packets=- bytes=-"},
                             {plane, "entry kind=bi src=1 dst=2 vlan=- state=odd packets=- bytes=-"},
                             {plane, "entry kind=bi src=1 dst=2 vlan=- state=held packets=-1 bytes=-"}}) {
        EXPECT_FALSE(parsePlane(session, bad, report = {})) << joinWords(bad, "|");
    }
}

TEST_F(Rows, CompletionKnowsTheGrammarAndWhatRuns) {
    daemon.rows = {{1, STATUS_PROGRAMMED}};
    const struct {
        const char* line;
        const char* found;
    } cases[] = {
        {"vlan-group li --v", "--vlan"},
        {"--timeout 3 mod", "mode"},
        {"help pon o", "on off"},
        {"pl s", "show sweep"},
        {"mon req", "request"},
        {"board role s", "standby single"},
        {"scalar get max-t", "max-targets"},
        {"group del 5", "5"},
        {"pair add l", "lag1"},
        {"pair add ge1/1 ge1/2 l", "lag1"},
        {"group list 5 l", ""},
        {"vlan-group add 7 ge1/1 --vlan 1", "10"},
        {"apply fi", ""},
    };
    const char* const names[] = {"ge1/1", "lag1", "vlan10"};
    const char* const kinds[] = {"ethernet", "trunk", "vlan"};
    for (size_t at = 0; at < std::size(names); ++at) {
        BoardInterface interface;
        interface.name = names[at];
        interface.kind = kinds[at];
        interface.vlan = at == 2 ? 10 : 0;
        session.interfaces.push_back(interface);
    }
    for (const auto& each : cases) {
        EXPECT_EQ(joinWords(completions(session, splitWords(each.line)), " "), each.found) << each.line;
    }
}

}  // namespace
