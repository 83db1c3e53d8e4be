// What the operator's command asks and how it reads the answers; the commands themselves: the table,
// additions that are taken back, listings, completion.
#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/config_file.h"
#include "common/files.h"
#include "common/statuses.h"
#include "common/text.h"
#include "ctl/commands/commands.h"
#include "ctl/commands/complete.h"
#include "ctl/commands/interactive.h"
#include "ctl/commands/matrix_svg.h"
#include "ctl/commands/plane_commands.h"
#include "ctl/commands/row_commands.h"
#include "ctl/text/command_line.h"
#include "lib/link/happening.h"
#include "lib/link/printouts.h"
#include "lib/link/scalars.h"
#include "platform/hardware.h"
#include "platform/route_messages.h"
#include "tests/ctl_fake.h"
#include "wire/framing.h"
#include "wire/scalars.h"

namespace {

TEST(CtlClient, RepliesWhoseLengthsLieAreRefused) {
    const std::vector<std::vector<uint32_t>> bad = {
        {}, {0, 0}, {0, 4, 0}, {0, 0, 4}, {0, 0xFFFFFFFF, 0}, {0, 0, 0xFFFFFFFC, 1}, {0, 0, 0, 0}};
    for (const std::vector<uint32_t>& words : bad) EXPECT_FALSE(decodeReply(bytesOf(words))) << words.size();
    const std::optional<Reply> reply = decodeReply(bytesOf({0xFFFFFFFF, 0, 4, 9}));
    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->status == -1 && reply->index.empty() && wordAt(reply->value, 0) == 9);
}

TEST(CtlClient, AnswersAreReadStrictly) {
    EXPECT_EQ(describeStatus(STATUS_BAD_VLAN), "0x03E8002A: bad VLAN id: 1 to 4095 are valid");
    EXPECT_EQ(describeStatus(-77), "0xFFFFFFB3: unknown status");
    EXPECT_EQ(vlansOfBitList("\x40\x01"), (std::vector<uint32_t>{1, 15}));
    EXPECT_FALSE(parseBoardInterface("number=x name=lag1"));
    EXPECT_FALSE(parseBoardInterface("number=1 kind=trunk"));
    std::optional<Matrix> matrix = parseMatrix({"a bb", "a -o", "bb x-"});
    ASSERT_TRUE(matrix);
    matrix->names[0] = "<a&\"\x1b";
    EXPECT_NE(matrixSvg(*matrix).find("<title>bb to &lt;a&amp;&quot;\\x1b: "), std::string::npos);
    for (const Words& bad : {Words{}, {"a b", "a -x"}, {"a", "b -"}, {"a", "a -x"}, {"a", "a ?"}}) {
        EXPECT_FALSE(parseMatrix(bad));
    }
}

TEST_F(Ctl, WalkEndsWhenTheKeyDoesNotAdvance) {
    daemon.rows = {{1, ROW_STATE_PROGRAMMED}, {7, ROW_STATE_CREATED}};
    const RowScope group{5, 0};
    const std::vector<Row> found = collectRows(session, GROUP_ROWS, &group);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_TRUE(found[1].member == 7 && found[1].scope.number == 5 && found[1].status == ROW_STATE_CREATED);
    daemon.stuck = true;
    EXPECT_NE(endOf([&] { walkRows(session, GROUP_ROWS, &group); }).find("does not advance"),
              std::string::npos);
}

std::string request(const std::vector<uint32_t>& words) {
    const std::string bytes = bytesOf(words);
    return "request status=0 frame=" + hexText(bytes.data(), bytes.size());
}

TEST_F(Ctl, HappeningsBecomeSentences) {
    IsolateCmdData data{};
    data.dstIfUnit = 101;
    data.vid = 10;
    data.grpNo = 5;
    RtMsgHdr header{};
    header.length = sizeof(header);
    header.type = DAX_RTM_RESET;
    const auto recordOf = [](const auto& record) { return hexText(&record, sizeof(record)); };
    RtMsgHdr link = header;
    RtIfInfo lag{};
    lag.ifUnit = 101;
    const RtAttr bare{sizeof(RtAttr), 77}, gained{8, DAX_RTA_MEMBER_ADD};
    link.type = DAX_RTM_NEWLINK;
    link.length = sizeof(link) + sizeof(lag) + sizeof(bare) + sizeof(gained) + sizeof(uint32_t);
    const std::string isolate =
        fmt::format("hardware call=daxIfSyncApi ifUnit=1 opcode=44 attrId={} data=", DAX_ISO_BI_VLAN_ADD);
    const std::pair<std::string, const char*> cases[] = {
        {request({OP_GROUP_SET, 1, 12, 1, 5, 0, 4, ROW_CREATE}), "request: group 5, ge1/1: create"},
        {request({OP_PAIR_SYNC, 0, 12, 1, 101, 0, 4, ROW_DESTROY}),
         "request: from the peer: pair ge1/1 to lag1: destroy"},
        {request({OP_VLAN_GROUP_GET_NEXT, 0, 16, 1, 7, 10, 0, 0}),
         "request: vlan-group 7 in VLAN 10, ge1/1: get next"},
        {request({OP_SCALAR_SET, SCALAR_MODE, 0, 4, 1}), "request: scalar mode: set to 1"},
        {request({OP_GROUP_SET, 1, 0xFFFFFFFF, 0}), "request: unreadable, opcode 4"},
        {"request frame=0a", "request: unreadable"},
        {isolate + recordOf(data), "hardware: isolate ge1/1 and lag1, group 5 in VLAN 10"},
        {isolate + "00", "hardware: isolate ge1/1 and 0, group 0"},
        {fmt::format("hardware call=daxIfSyncApi ifUnit=101 opcode={} attrId=0", +DAX_IF_PROTO_ENABLE),
         "hardware: protocol on at lag1"},
        {"hardware call=daxVlanSetApi vlan=7 opcode=2 data=05000000", "hardware: protocol off in VLAN 7"},
        {"hardware call=daxScalarSetApi data=" + recordOf(ROW_CREATE), "hardware: mode 2"},
        {"hardware call=daxScalarSetApi data=00", "hardware: daxScalarSetApi data=00"},
        {"hardware call=daxHwilCmdSetApi key=7 command=9 data=0000000002",
         "hardware: daxHwilCmdSetApi key=7 command=9 data=0000000002"},
        {"hardware seq=3 call=daxHwilIfGet status=0 ifUnit=1", "query: daxHwilIfGet ifUnit=1"},
        {"event group=42 messages=" + recordOf(header) + "0102",
         "event: reset of the configuration; 2 bytes that are no message"},
        {"event group=33 messages=" + recordOf(link) + recordOf(lag) + recordOf(bare) + recordOf(gained) +
             recordOf(uint32_t{1}),
         "event: link lag1 attribute 77 gained member ge1/1"},
        {request({OP_GROUP_SET, 1, 12, 1, 5, 0, 4, 9}), "request: group 5, ge1/1: unknown row status"},
        {"log priority=4 channel=host text=a b=c  d", "log: host: a b=c  d"},
        {"dropped count=7", "dropped: "},
    };
    for (const auto& [line, told] : cases) {
        const std::optional<Happening> happening = readHappening(session, line);
        ASSERT_TRUE(happening) << line;
        EXPECT_EQ(happening->kind + ": " + happening->sentence, told);
    }
    for (const char* bad : {"", "frob a=1", "log nothing", "event time=x", "hardware status=-"}) {
        EXPECT_FALSE(readHappening(session, bad)) << bad;
    }
}

TEST_F(Ctl, MonitorPrintsSoManyLines) {
    setenv("TZ", "UTC", 1);
    const std::string get = request({OP_GROUP_GET_NEXT, 0, 12, 1, 5, 0, 0}).substr(7);
    daemon.boardLines["monitor"] = {
        "request time=3661.250 status=" + std::to_string(STATUS_NOT_FOUND) + get.substr(9),
        "hardware time=3.000 seq=9 call=daxHwilIfGet status=0 ifUnit=1",
        "event time=86399.999 status=-1 group=42 messages=0000", "dropped count=7",
        "log time=1.000 channel=host text=at last"};
    const auto printed = [&](const std::string& line, Exit exit) {
        return printedBy([&] { EXPECT_EQ(run(line), exit) << line; });
    };
    const std::string first = "01:01:01.250  request   group 5, ge1/1: get next -> none\n";
    EXPECT_EQ(printed("monitor --count 1", Exit::done), first);
    EXPECT_EQ(printed("monitor --count 3", Exit::done),
              first + "23:59:59.999  event     2 bytes that are no message -> " + describeStatus(-1) +
                  "\n-- 7 lines were dropped here\n");
    EXPECT_EQ(printed("monitor --count 0", Exit::done), "");
    EXPECT_EQ(
        printed("monitor query --json --count 1", Exit::done),
        R"({"kind":"query","time":3.000,"seq":9,"call":"daxHwilIfGet","status":0,"result":"ok","words":null,"ifUnit":1,"text":"daxHwilIfGet ifUnit=1"})"
        "\n");
    EXPECT_EQ(
        printed("monitor request --json --count 1", Exit::done),
        R"({"kind":"request","time":3661.250,"status":65536002,"result":"none","words":null,"operation":"get next",)"
        R"("object":"group","group":5,"source":null,"interface":"ge1/1","vlan":null,"scalar":null,"value":null,)"
        R"("fromPeer":false,"text":"group 5, ge1/1: get next"})"
        "\n");
    EXPECT_TRUE(printed("monitor log --count 3", Exit::unreachable).ends_with(": the stream ended\n"));
    EXPECT_TRUE(printed("monitor log", Exit::unreachable).ends_with(": the stream ended\n"));
}

TEST(CtlPrintouts, AreTakenApart) {
    const auto settings = readSettings("\r\n[X] info:\n\r mode: 2\n\r p2p: 1-2\r\n p2p: 7\r\n");
    ASSERT_EQ(settings.size(), 2u);
    EXPECT_EQ(settings[1], (std::pair<std::string, std::string>("p2p", "1-2,7")));
    const auto pairs = readPairs(
        "\r\n[X] info:\n\r  src 1, dst 30, ref:\r\n80 01 \r\n00 02 \r\n8g 80\r\n  src 2, dst 3, ref:\r\n");
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_EQ(pairs[0].groups, (std::vector<uint32_t>{1, 16, 31}));
    EXPECT_TRUE(pairs[1].source == 2 && pairs[1].target == 3 && pairs[1].groups.empty());
    EXPECT_EQ(readNumbers("x\n\r  isoGrpNo 5 vlan 10 -> ifUnit:3\r\nserial 0 -> ifunit:4\r\n"),
              (std::vector<std::vector<uint32_t>>{{5, 10, 3}, {0, 4}}));
}

TEST(CtlTable, EveryExampleFitsItsCommandAndWrongUseIsTold) {
    for (const Command& command : commandTable()) {
        CommandLine line = parseCommandLine(splitWords(command.example));
        const size_t named = *command.verb == '\0' ? 1 : 2;
        EXPECT_EQ(line.words[0], command.object);
        EXPECT_TRUE(named == 1 || line.words[1] == command.verb) << command.example;
        line.words.erase(line.words.begin(), line.words.begin() + static_cast<std::ptrdiff_t>(named));
        EXPECT_EQ(findMisfit(parseSignature(command.signature), line.words, line.options), "")
            << command.example;
        Words help = {"help", command.object, command.verb};
        help.resize(1 + named);
        const std::string told = printedBy([&] { EXPECT_EQ(runCommandLine(help), Exit::done); });
        EXPECT_NE(told.find(std::string("\nexample: portisolatectl ") + command.example), std::string::npos)
            << told;
    }
    for (const char* wrong : {"", "p list", "group", "group frob", "group add", "mode set 1 2", "nonsense"}) {
        EXPECT_EQ(runCommandLine(splitWords(wrong)), Exit::usage) << wrong;
    }
}

TEST(CtlTable, LinesRunUntilOneFails) {
    const struct {
        const char* lines;
        const char* printed;  // the beginning
        const char* last;     // the end
        Exit exit;
    } cases[] = {
        {"", "portisolatectl: no command given", "lists all\n", Exit::usage},
        {"mode set ? # help", "usage: portisolatectl mode set MODE\n", "mode set 1\n", Exit::done},
        {"mode ?\nquit\nfrob", "usage: portisolatectl mode VERB", "mode get\n", Exit::done},
        {"#one two\n?\n\nfrob\nmode ?", "usage: portisolatectl [--timeout",
         "portisolatectl: standard input, line 4: nothing behind it was run\n", Exit::usage},
    };
    for (const auto& [lines, printed, last, exit] : cases) {
        std::istringstream input(lines);
        const std::string text = printedBy([&] { EXPECT_EQ(runLines(input), exit) << lines; });
        EXPECT_TRUE(text.starts_with(printed) && text.ends_with(last)) << text;
    }
}

TEST_F(Ctl, RefusedAdditionLeavesWhatWasThereBefore) {
    daemon.rows = {{1, ROW_STATE_PROGRAMMED}, {2, ROW_STATE_CREATED}};
    daemon.refused = 9;
    Exit exit = Exit::done;
    const auto add = [&] { exit = addRows(session, GROUP_ROWS, {5, 0}, {1, 2, 3, 4, 9, 6}, true); };
    EXPECT_EQ(printedBy(add),
              "portisolatectl: group 5, 9: activate refused: " + describeStatus(STATUS_GROUP_FULL) +
                  "\nportisolatectl: group 5: taken back again: 9, 4 and ge1/3\n"
                  "portisolatectl: group 5: was there before and stays active: ge1/2\n");
    EXPECT_EQ(exit, Exit::refused);
    EXPECT_EQ(daemon.rows,
              (std::map<uint32_t, uint32_t>{{1, ROW_STATE_PROGRAMMED}, {2, ROW_STATE_PROGRAMMED}}));
}

TEST_F(Ctl, LostDaemonIsToldWithWhatIsLeftBehind) {
    // The look-up, create and activate of one member; then the same up to a refusal and into what undoes it.
    const char* const told[] = {
        ": gone\nportisolatectl: group 5: added before that, and not taken back: ge1/3\n",
        "and not taken back: ge1/3 and 4\n"};
    daemon.refused = 4;
    session.commands.failure = "gone";
    for (const uint32_t answers : {3u, 6u}) {
        daemon.rows = {};
        daemon.answers = answers;
        Exit exit = Exit::done;
        const std::string text = printedBy([&] {
            exit = addRows(session, GROUP_ROWS, {5, 0}, {3, 4}, true);
        });
        EXPECT_EQ(exit, Exit::unreachable);
        EXPECT_TRUE(text.ends_with(told[answers / 6])) << text;
    }
}

TEST_F(Ctl, RefusalsAndDryRunsAreWhatTheySay) {
    const std::string all = "group1=4 group2=4 ";
    constexpr char SETTLED[] = "hardware vlans plane sweep";
    const std::string moved = "group1=2 group1=1 group2=2 group2=1 ";
    const struct {
        const char* line;  // @ stands for the file
        const char* file;
        const char* refused;
        uint32_t refusals;
        Exit exit;
        std::string changes;
        const char* board;
        const char* spans = "0";  // the board's answer
    } cases[] = {
        {"apply @ --dry-run", "mode 1\npon off 7\n", "none", 0, Exit::done, "", ""},
        {"apply @ --dry-run", "group 5 ge1/1-2", "none", 0, Exit::done, "", ""},
        {"apply @", "group 5 ge1/1-2", "none", 0, Exit::done, "", SETTLED},
        {"apply @", "# cut short", "none", 0, Exit::usage, "", ""},
        {"apply @", "group 33 ge1/1", "none", 0, Exit::usage, "", ""},
        {"apply @ --dry-run", "group 32 ge1/1", "none", 0, Exit::done, "", ""},
        {"apply @ --empty", "", "none", 0, Exit::done, all, SETTLED},
        {"apply @", "pon off 7", "none", 0, Exit::done, all + "pon7=2", SETTLED},
        {"apply @", "pon off 7", "group1=4", 9, Exit::refused, all + "pon7=2", "plane show"},
        {"apply @", "pon off 7", "pon7=2", 9, Exit::refused, all + "pon7=2", "plane show"},
        // What is refused early is asked again after the removals; a mode that waits holds all others back.
        {"apply @", "group 6 ge1/1-2", "group1=2", 1, Exit::done,
         "group1=2 group2=2 group2=1 " + all + "group1=2 group1=1", SETTLED},
        {"apply @", "mode 1\ngroup 6 ge1/1-2", "scalar1=1", 1, Exit::done,
         "scalar1=1 " + all + "scalar1=1 " + moved, SETTLED},
        {"group del 5", "", "group1=4", 9, Exit::refused, all, ""},
        {"group activate 5 ge1/1-2", "", "group1=1", 9, Exit::refused, "group1=1 group2=1", ""},
        {"pair probe 1 2", "", "none", 0, Exit::refused, "", ""},
        {"pon on 7 8", "", "pon7=1", 9, Exit::refused, "pon7=1 pon8=1", ""},
        {"mode set 1", "", "scalar1=1", 9, Exit::refused, "scalar1=1", ""},
        // What would isolate another VLAN, or nothing that could be removed again, is not asked.
        {"pon off 10-4096", "", "none", 0, Exit::usage, "", ""},
        {"vlan-group add 7 ge1/1 --vlan 65546", "", "none", 0, Exit::usage, "", ""},
        {"group add 5 ge1/1 0", "", "none", 0, Exit::usage, "", ""},
        {"pair create 9 1", "", "none", 0, Exit::usage, "", ""},
        {"group del 5 9", "", "none", 0, Exit::done, "", ""},
        // More groups span before anything changes, and fewer when all has; all do where nothing is said.
        {"apply @", "spanning 7\npon off 7", "none", 0, Exit::done, "spans 5 7 " + all + "pon7=2 spans 7",
         SETTLED, "spanning 5"},
        {"apply @", "group 5 ge1/1-2", "none", 0, Exit::done, "spans 1-16", SETTLED, "spanning none"},
        {"apply @", "group 5 ge1/1-2\nspanning none", "spans none", 9, Exit::refused, "spans none",
         "plane show", "spanning 5-7"},
        {"apply @", "group 5 ge1/1-2\nspanning 5", "none", 0, Exit::done, "", SETTLED},
    };
    const std::string path = testing::TempDir() + "portisolate-apply-" + std::to_string(getpid());
    for (const auto& each : cases) {
        daemon = {.rows = {{1, ROW_STATE_PROGRAMMED}, {2, ROW_STATE_PROGRAMMED}},
                  .refusedChange = each.refused,
                  .refusals = each.refusals,
                  .boardLines = {{"plane spanning", {each.spans}}}};
        std::ofstream(path) << each.file;
        std::string line = each.line;
        if (const size_t at = line.find('@'); at != std::string::npos) line.replace(at, 1, path);
        Exit exit = Exit::unreachable;
        const std::string printed = printedBy([&] { exit = run(line); });
        const std::string what = fmt::format("{}: {}\n{}", each.line, each.file, printed);
        EXPECT_EQ(exit, each.exit) << what;
        EXPECT_EQ(joinWords(daemon.changes, " "), joinWords(splitWords(each.changes), " ")) << what;
        EXPECT_EQ(joinWords(daemon.board, " "), each.board) << what;
    }
    std::remove(path.c_str());
}

TEST_F(Ctl, SavedFilesSayWhichGroupsSpan) {
    session.root = testing::TempDir() + "portisolate-spans-" + std::to_string(getpid());
    const std::string path = session.root + SAVED_FILE;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    const char* const cases[][4] = {
        // file, the board's answer; what keep changes, what export says
        {"mode 2", "spanning 5", "spans 1-16", "spanning 5"},
        {"mode 2", "spanning 1-16", "", ""},
        {"spanning 1-16", "spanning 1-16", "", "spanning 1-16"},
        {"spanning 7", "spanning 5", "spans 5 7, spans 7", "spanning 5"},
        {"spanning 7\nbogus", "spanning 5", "spans 5 7", "spanning 5"},
        {"spanning 7 17", "spanning none", "spans 1-16", "spanning none"},
        {"spanning 7", "0", "", "spanning 7"},
    };
    for (const auto& [file, spans, changes, said] : cases) {
        std::ofstream(path) << file << "\nmode 2\n";
        daemon = {};
        daemon.boardLines["plane spanning"] = {spans};
        printedBy([&] { run("keep --once"); });
        EXPECT_EQ(joinWords(daemon.changes, ", "), changes) << file;
        const std::string text = printedBy([&] { run("export"); });
        const size_t at = std::min(text.find("spanning"), text.size());
        EXPECT_EQ(text.substr(at, text.find('\n', at) - at), said) << file << text;
    }
    std::filesystem::remove_all(session.root);
}

TEST_F(Ctl, SaveWritesAllOrNothing) {
    std::string folder = testing::TempDir() + "portisolate-save-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string path = folder + "/isolation.conf";
    const auto names = [&] {
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) all += entry.path().filename();
        return all.size();
    };
    const auto holds = [](const std::string& file) {
        std::string text;
        EXPECT_TRUE(readTextFile(file, text));
        return text.substr(text.rfind('\n', text.size() - 2) + 1);
    };
    for (const uint32_t rows : {0u, 1u, 2u}) {
        daemon.rows[rows + 1] = ROW_STATE_PROGRAMMED;
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(run("save " + path), Exit::done); }), "saved to " + path + "\n");
    }
    EXPECT_EQ(holds(path), "group 5 ge1/1-3\n");
    EXPECT_EQ(holds(path + FORMER_SUFFIX), "group 5 ge1/1 ge1/2\n");
    printedBy([&] { EXPECT_EQ(run("save /dev/null"), Exit::done); });
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    std::filesystem::create_directory(folder + "/other" + FORMER_SUFFIX);
    const size_t before = names();
    daemon.answers = 3;  // the daemon is lost
    printedBy([&] { EXPECT_EQ(run("save " + path), Exit::unreachable); });
    daemon.answers = UINT32_MAX;
    // A folder where the former file is to be kept.
    printedBy([&] { EXPECT_EQ(run("save " + folder + "/other"), Exit::refused); });
    EXPECT_EQ(names(), before);
    EXPECT_EQ(holds(path), "group 5 ge1/1-3\n");
    std::filesystem::remove_all(folder);
}

TEST_F(Ctl, PlaneIsToldByWhatDiffers) {
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
        {{"plane name=linux state=ready", "spanning 1-4 7", "span device=vx0 state=carries",
          "span device=vx1 state=plain",
          "entry kind=span src=- dst=a vlan=- group=5 state=held packets=2 bytes=9",
          "entry kind=span src=- dst=b vlan=7 group=5 state=held packets=1 bytes=9"},
         "plane linux: ready\nspan vx0: carries groups 1-4 7\n"
         "span vx1: plain, no groups are carried; what members of groups send to it is dropped\n"
         "KIND  FROM                     TO  VLAN  STATE  PACKETS  BYTES\n"
         "span  other machines, group 5  a   all   held   2        9\n"
         "span  other machines, group 5  b   7     held   1        9\n"
         "2 held; 3 packets dropped\n"
         "packets dropped from other machines: 3 of group 5\n",
         Exit::done},
        {{"plane name=linux state=gone heal=watch healed=3"},
         "plane linux: gone, healed 3 times\nno entries\n"
         "`portisolatectl plane restore` puts back what is missing\n",
         Exit::refused},
    };
    for (const auto& each : cases) {
        const std::optional<PlaneReport> report = parsePlane(session, each.lines);
        ASSERT_TRUE(report) << each.told;
        Exit exit = Exit::done;
        EXPECT_EQ(printedBy([&] { exit = printPlane(*report, false); }), each.told);
        EXPECT_EQ(exit, each.exit);
    }
    const char* const plane = "plane name=sim state=ready";
    const std::optional<PlaneReport> report = parsePlane(session, {plane, left});
    ASSERT_TRUE(report && holdsAll(*report)) << "what is left over isolates too much, not too little";
    const std::string json = printedBy([&] { printPlane(*report, true); });
    EXPECT_NE(json.find(R"("to":"lag1","vlan":null,"state":"left-over","packets":null)"), std::string::npos);
    for (const Words& bad : {Words{}, {left}, {"plane name=sim"}, {plane, "entry"}, {plane, "what"}}) {
        EXPECT_FALSE(parsePlane(session, bad)) << joinWords(bad, "|");
    }
    for (const char* bad :
         {"kind=tri vlan=- state=held packets=- bytes=-", "kind=bi vlan=x state=held packets=- bytes=-",
          "kind=bi vlan=- state=odd packets=- bytes=-", "kind=span vlan=- state=held packets=- bytes=-",
          "kind=bi vlan=- state=held packets=-1 bytes=-"}) {
        EXPECT_FALSE(parsePlane(session, {plane, std::string("entry src=1 dst=2 ") + bad})) << bad;
    }
}

TEST_F(Ctl, CompletionKnowsTheGrammarAndWhatRuns) {
    daemon.rows = {{1, ROW_STATE_PROGRAMMED}};
    session.interfaces[3].kind = "trunk";
    session.interfaces.push_back({.number = 1010, .name = "vlan10", .kind = "vlan", .vlan = 10});
    for (const std::string line :
         {"--timeout 3 mod > mode", "help pon o > on off", "pl s > show sweep", "mon req > request",
          "board role s > standby single", "scalar get max-t > max-targets", "group del 5 > 5",
          "pair add l > lag1", "pair add ge1/1 ge1/2 l > lag1", "group list 5 l > ",
          "vlan-group add 7 ge1/1 --vlan 1 > 10", "why ge1/1 --remote 5 > 5", "apply fi > "}) {
        const size_t end = line.find(" > ");
        const Words typed = splitWords(line.substr(0, end));
        EXPECT_EQ(joinWords(completions(session, commandTable(), typed), " "), line.substr(end + 3)) << line;
    }
    // What the daemon does not answer is left out in silence; the board's VLANs stay.
    daemon.answers = 0;
    const Words line = {"vlan-group", "add", "7", "ge1/1", "--vlan", ""};
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(completions(session, commandTable(), line), Words{"10"}); }), "");
}

}  // namespace
