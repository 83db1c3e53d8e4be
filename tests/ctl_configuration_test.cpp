// The configuration as a text and as a whole: reading, writing, the plan from one to another, and what it
// means for traffic.
#include <fmt/format.h>

#include <cstdio>
#include <random>

#include "common/text.h"
#include "lib/configuration/config_plan.h"
#include "lib/configuration/judgement_text.h"
#include "lib/configuration/openings.h"
#include "lib/configuration/resolution.h"
#include "tests/ctl_fake.h"

namespace {

// What a text means on the board.
struct Config : Ctl {
    Configuration resolve(const std::string& text, std::string* mistakes = nullptr) {
        ConfigFile file = parseConfig(text);
        const Configuration configuration = resolveConfig(session, file, {}).wanted;
        checkGroupNumbers(file, 16);
        for (const auto& [place, why] : file.mistakes) {
            const std::string told = fmt::format("{}:{} {}\n", place.line, place.column, why);
            mistakes != nullptr ? void(*mistakes += told) : void(ADD_FAILURE() << text << ": " << told);
        }
        return configuration;
    }
    // The steps in order, a bar behind each part of the plan, and who is open meanwhile.
    std::string plan(const std::string& running, const std::string& wanted) {
        const Configuration before = resolve(running), after = resolve(wanted);
        const Plan made = planChanges(before, after);
        std::string text;
        for (const std::vector<Step>& part : {made.before, made.early, made.release, made.after}) {
            for (const Step& step : part) {
                const char* const signs[] = {"m", "p", "-", "c", "+", "a", "s"};
                text += signs[static_cast<size_t>(step.action)];
                text += step.number != 0 ? std::to_string(step.number)
                                         : fmt::format("{}/{}", step.row.scope.number, step.row.member);
                text += ' ';
            }
            text += "| ";
        }
        for (const auto& [left, right] : findOpenings(before, after, made)) {
            text += fmt::format("{}-{} ", left, right);
        }
        return text;
    }
};

TEST_F(Config, EveryMistakeIsToldWithItsPlace) {
    const char* const cases[][2] = {
        // text and mistakes
        {"", ""},
        {"# nothing\r\n\t\n  mode 2 # two\r\ngroup 1 ge1/1-3\ngroup 1 lag1 #x", ""},
        {"mode\n\tmode x y\nmode 1 2",
         "1:6 a mode is missing here\n2:7 \"x\" is not a mode: give a number from 0 up\n"
         "3:8 \"2\" is one word too many\n"},
        {"gruop 1 ge1/1", "1:1 \"gruop\" does not begin a line; did you mean group?\n"},
        {"created\ncreated pon off 1",
         "1:9 group, vlan-group or pair is missing here\n"
         "2:9 only groups, VLAN groups and pairs can be created without isolating\n"},
        {"group 17 ge1/1", "1:7 the daemon's group numbers run from 1 to 16\n"},
        {"group 5\ngroup 5 ge1/9",
         "1:9 an interface is missing here\n"
         "2:9 no interface \"ge1/9\"; did you mean ge1/1, ge1/2 or ge1/3?\n"},
        {"group 5 1\npair 0 to 1",
         "2:6 the board has no interface 0; `portisolatectl board list` shows all\n"},
        {"group 5 ge1/1\ncreated group 5 ge1/1-2", "2:17 ge1/1 was named before, in line 1\n"},
        {"group 5 ge1/1\nvlan-group 5 vlan 7 ge1/1\nvlan-group 6 vlan 7 1\nvlan-group 6 vlan 8 1",
         "2:12 number 5 serves a group without a VLAN in line 1; take another\n"
         "4:12 number 6 serves VLAN 7 in line 3; take another\n"},
        {"vlan-group 6 vlan 4096 1\nvlan-group 6 in 7 1",
         "1:19 \"4096\" is not a VLAN id: give 1 to 4095\n2:14 \"in\" stands where \"vlan\" belongs\n"},
        {"pair lag1 ge1/1\npair 1 to lag1 ge1/1\npair ge1/1-2 to lag1",
         "1:11 \"ge1/1\" stands where \"to\" belongs\n2:16 ge1/1 is its own target\n"
         "3:6 give one source: this range holds several\n"},
        {"pair 1 to 2\ngroup 3 1-3", "1:11 ge1/1 and ge1/2 share group 3, so they cannot be a pair\n"},
        {"pon off 5-7 6 0 x",
         "1:13 VLAN 6 was named before\n1:15 \"0\" is not a VLAN id: give 1 to 4095\n"
         "1:17 \"x\" is not a VLAN id: give 1 to 4095\n"},
        {"group 5 !ge1/1\ngroup 5 x* alias:\npair !x to y*\npair x* to ge1/1\ngroup 5 name:x",
         "1:9 this line has no pattern that something could be left out of\n"
         "2:12 a name or a pattern is missing behind \"alias:\"\n3:6 a source cannot be left out\n"},
        {"isolated 1\npolicy a/b\nisolated 9\npolicy p vlan 7 groups 0\npolicy q\npolicy q groups 16-17\n"
         "policy r vlan 7\ncommunity x 1 2\nisolatd 1\nisolated 2\npolicy s vlan 7\nisolated ge*\nmode 1\n"
         "promiscuous 1",
         "1:1 \"isolated\" stands outside of a policy\n"
         "2:8 \"a/b\" is not a name of a policy: give at most 32 letters, digits, \"_\", \".\" and \"-\"\n"
         "4:24 \"0\" is not a range of group numbers: give one such as 20-40\n"
         "6:8 the policy q stands in line 5\n9:1 \"isolatd\" does not begin a line; did you mean isolated?\n"
         "10:10 ge1/2 was named before, in line 8\n"
         "12:10 ge1/1 has its role in the policy r by line 8; leave it out of one of them\n"
         "12:10 ge1/2 has its role in the policy r by line 8; leave it out of one of them\n"
         "14:1 \"promiscuous\" stands outside of a policy\n"},
        {"mode 1\nmode 2\nspanning 1-16\nspanning none",
         "2:6 the mode was set before, in line 1\n"
         "4:10 the groups that span were set before, in line 3\n"},
        {"spanning\nspanning none 5\nspanning 1-3 2\nspanning 16 17\nspanning 0",
         "1:10 a group or \"none\" is missing here\n"
         "2:10 \"none\" is not a group that can span machines: give 1 to 16, for each of which a frame has a "
         "bit\n3:14 group 2 was named before\n"
         "4:13 \"17\" is not a group that can span machines: give 1 to 16, for each of which a frame has a "
         "bit\n5:10 \"0\" is not a group that can span machines: give 1 to 16, for each of which a frame has "
         "a "
         "bit\n"},
        {"\xc3\xa4 \xff\nmode 1 \xc3\xa4\xc3\xa4 z",
         "1:1 \"\xc3\xa4\" does not begin a line; these do: created, mode, group, vlan-group, pair, pon, "
         "policy and spanning\n"
         "2:8 \"\xc3\xa4\xc3\xa4\" is one word too many\n"},
    };
    for (const auto& [text, told] : cases) {
        std::string mistakes;
        resolve(text, &mistakes);
        EXPECT_EQ(mistakes, told) << text;
    }
    EXPECT_EQ(parseConfig(std::string(CONFIG_TEXT_MAX + 1, '\n')).mistakes.size(), 1u);
}

TEST_F(Config, WrittenLinesMeanTheSameAgain) {
    session.interfaces[1].name = "3";       // looks like the number of another
    session.interfaces[2].name = "#3";      // looks like a comment
    session.interfaces[3].name = "lag1-2";  // looks like a range of names
    for (const uint32_t one : {71u, 72u, 73u}) session.interfaces.push_back({.number = one, .name = "#"});
    session.interfaces.push_back({.number = 74, .name = "2-4"});  // looks like a range of numbers
    const std::string text =
        "mode 2\nspanning 1-3 5 16\ngroup 5 ge1/1 3 0x3 lag1-2-2\ncreated group 6 71-73 2-4-4\nvlan-group 7 "
        "vlan 10 ge1/1 "
        "lag1-2-2\n"
        "pair 3 to 71-73\npon off 1 30-33 4095\n";
    std::string again;
    for (const std::string& line : configLines(session, resolve(text))) again += line + "\n";
    EXPECT_EQ(again, text);
}

TEST_F(Config, PatternsStandForWhatMatchesThem) {
    session.interfaces = {
        {.number = 1, .name = "vnet0", .alias = "red web", .otherNames = {"web \xff\n\""}},
        {.number = 2, .name = "vnet12", .alias = "red\nmail"},
        {.number = 3, .name = "tap*", .device = "eth9"},
        {.number = 4, .name = "vnet3", .trunk = "bond0"},
        {.number = 5, .name = "vnet4", .gone = true},
        {.number = 6, .name = "vnet.7", .kind = "vlan"},
        {.number = 7, .name = "\xc3\xa4-net"},
    };
    // Members, and those in the order of their numbers.
    for (const std::string each :
         {"vnet* = 1 2", "vnet? = 1", "vnet* !vnet0 = 2", "* !vnet* !3 = 7", "*t*2 = 2", "vnet** vnet* = 1 2",
          "?-net = 7", "tap\\* x* = 3", "name:eth9 = 3", "eth* = ", "name:web* = 1", "alias:red* = 1 2",
          "alias:red?web = 1", "alias:* !name:web* = 2", "alias: = ", "vnet12 * = 1 2 3 7",
          "**a**b**c**d**e** = ", "name:tap\\* = 3", "vnet0 v* !vnet0-12 = 1"}) {
        const size_t end = each.find(" = ");
        const std::string members = each.substr(0, end);
        std::string mistakes, found;
        for (const auto& [row, active] : resolve("group 5 " + members, &mistakes).rows) {
            found += (found.empty() ? "" : " ") + std::to_string(row.member);
        }
        EXPECT_EQ(found, each.substr(end + 3)) << members;
    }
    EXPECT_EQ(resolve("pair v* to * !7").rows.size(), 4u);
    EXPECT_EQ(configLines(session, resolve("group 5 *")),
              Words{"group 5 vnet0 vnet12 name:tap\\* \xc3\xa4-net"});
    // None but names are kept for ports that are absent.
    const ConfigFile file =
        parseConfig("group 5 a b* name:c !d\npair e to f? g\npolicy p\nisolated h !i alias:*");
    EXPECT_EQ(namesIn(file), (std::set<std::string>{"a", "e", "g", "h"}));
}

// A board, a policy with random roles, and who reaches whom by it.
struct Policies : Config {
    std::mt19937 random{1};
    std::vector<int> roles{};  // 0: none, 1: promiscuous, 2: isolated, from 3: communities
    uint32_t draw(uint32_t below) { return static_cast<uint32_t>(random() % below); }

    void makePorts(uint32_t count, uint32_t communities) {
        session.interfaces.clear();
        roles.assign(count + 1, 0);
        for (uint32_t port = 1; port <= count; ++port) {
            session.interfaces.push_back({.number = port, .name = fmt::format("v{}", port), .present = true});
            roles[port] = static_cast<int>(draw(communities + 3));
        }
    }
    std::string text(const std::string& head) const {
        std::string lines = "policy p " + head + "\n";
        for (size_t port = 1; port < roles.size(); ++port) {
            const char* const words[] = {"", "promiscuous", "isolated"};
            if (roles[port] == 0) continue;
            lines += roles[port] < 3 ? words[roles[port]] : fmt::format("community c{}", roles[port]);
            lines += fmt::format(" v{}\n", port);
        }
        return lines;
    }
    bool reaches(uint32_t from, uint32_t to) const {
        const int one = roles[from], other = roles[to];
        return one < 2 || other < 2 || (one == other && one > 2);
    }
    // Pairs of ports for which the tables say otherwise than the roles.
    int wrong(const Configuration& configuration, uint32_t vlan) const {
        const Tables tables{.interfaces = session.interfaces, .configuration = configuration, .claims = {}};
        int count = 0;
        for (const BoardInterface& from : session.interfaces) {
            for (const BoardInterface& to : session.interfaces) {
                if (from.number == to.number) continue;
                const Judgement judged = judgeTables(tables, from.number, to.number, vlan);
                count += (judged.verdict == Verdict::forwards) != reaches(from.number, to.number) ? 1 : 0;
            }
        }
        return count;
    }
    Resolution resolveOver(const std::string& text, const Configuration& running, DaemonLimits limits) {
        ConfigFile file = parseConfig(text);
        Resolution resolution =
            resolveConfig(session, file, {.running = running, .ownsAll = true, .limits = limits});
        mistakes = file.mistakes.empty() ? "" : file.mistakes.front().text;
        return resolution;
    }
    std::string mistakes{};
};

TEST_F(Policies, RowsMeanTheRolesAndStayWhereTheyAre) {
    for (int round = 0; round < 60; ++round) {
        makePorts(2 + draw(24), 1 + draw(6));
        const uint32_t vlan = round % 3 == 0 ? 9 : 0;
        // Few numbers or small groups: pairs have to help out, outside of VLANs.
        const DaemonLimits limits{.groups = vlan != 0 ? 400 : 1 + draw(8), .portsPerGroup = 2 + draw(6)};
        const std::string head = vlan != 0 ? "vlan 9" : "";
        Configuration running;
        for (int change = 0; change < 6; ++change) {
            const Resolution made = resolveOver(text(head), running, limits);
            ASSERT_EQ(mistakes, "");
            ASSERT_EQ(wrong(made.wanted, vlan), 0) << text(head);
            ASSERT_EQ(resolveOver(text(head), made.wanted, limits).wanted.rows, made.wanted.rows);
            running = made.wanted;
            // One that has had no role gets one: nobody else loses a row for it.
            const auto port = 1 + draw(static_cast<uint32_t>(session.interfaces.size()));
            const bool comes = roles[port] < 2;
            roles[port] = static_cast<int>(comes ? 2 + draw(5) : draw(6));
            for (size_t other = 1; !comes && other < roles.size(); ++other) {
                if (draw(3) == 0) roles[other] = 0;
            }
            const Resolution next = resolveOver(text(head), running, limits);
            const Plan plan = planChanges(running, next.wanted);
            for (const auto& [left, right] : findOpenings(running, next.wanted, plan)) {
                // Where two that stood alike are one community now, either may be the one that moves.
                const bool moved = roles[left] == roles[port] || roles[right] == roles[port];
                EXPECT_TRUE(moved) << left << "-" << right;
            }
            size_t removed = 0, added = 0;
            for (const auto& [row, active] : running.rows) removed += next.wanted.rows.contains(row) ? 0 : 1;
            for (const auto& [row, active] : next.wanted.rows) added += running.rows.contains(row) ? 0 : 1;
            EXPECT_TRUE(!comes || removed == 0) << text(head);
            EXPECT_TRUE(!comes || added <= 2 * session.interfaces.size()) << added;
            running = next.wanted;
        }
    }
}

TEST_F(Policies, WhoChangesItsCommunityMovesAlone) {
    makePorts(9, 1);
    for (uint32_t mover = 1; mover <= 9; ++mover) {
        for (uint32_t port = 1; port <= 9; ++port) roles[port] = static_cast<int>(3 + port % 3);
        const Configuration before = resolveOver(text(""), {}, {}).wanted;
        roles[mover] = static_cast<int>(3 + (mover + 1) % 3);
        const Configuration after = resolveOver(text(""), before, {}).wanted;
        EXPECT_EQ(wrong(after, 0), 0);
        for (const auto& [row, active] : before.rows) {
            EXPECT_TRUE(row.member == mover || after.rows.contains(row)) << mover << " " << row.member;
        }
    }
}

TEST_F(Policies, LimitsAndNumbersOfOthersAreKept) {
    makePorts(8, 1);
    for (uint32_t port = 1; port <= 8; ++port) roles[port] = port <= 4 ? 3 : 4;
    // Sixteen pairs of ports, each in a group of its own: no fewer will do.
    const char* const cases[][4] = {
        // lines in front, head; use, mistake
        {"", "", "policy p: groups 1 to 16", ""},
        {"group 3 1\npolicy q groups 7-9\n", "",
         "policy p: groups 1 to 2, 4 to 6 and 10 to 16, 4 pairs of ports both ways", ""},
        {"", "groups 2-3", "policy p: groups 2 to 3, 14 pairs of ports both ways", ""},
        {"group 2 1\n", "vlan 9 groups 2-3", "policy p: group 3",
         "the group numbers for the policy p, 1 of them, do not suffice, and pairs cannot hold within a "
         "VLAN: v2 "
         "and v5 and 14 more pairs of ports would reach one another; give it more with `groups`, or make "
         "communities smaller"},
    };
    for (const auto& [front, head, use, mistake] : cases) {
        const Resolution made = resolveOver(front + text(head), {}, {});
        EXPECT_EQ(policyUseText(made.policies.back()), use);
        EXPECT_EQ(mistakes, mistake);
    }
    // A number with somebody's own row is his, unless the whole configuration is replaced.
    ConfigFile file = parseConfig(text(""));
    Configuration running;
    running.rows[{ConfigKind::group, {16, 0}, 99}] = true;
    const Resolution made = resolveConfig(session, file, {.running = running});
    EXPECT_FALSE(made.policies.back().groups.contains(16));
    // Numbers that a policy has found by itself are not to span.
    running.spanning = 1;
    for (const auto& [text, notes] : {std::pair("policy p\nisolated v1 v2", 1U),
                                      {"policy p groups 5-6\nisolated v1 v2", 0U},
                                      {"spanning 1-14\npolicy p\nisolated v1 v2", 0U}}) {
        file = parseConfig(text);
        EXPECT_EQ(resolveConfig(session, file, {.running = running}).notes.size(), notes) << text;
    }
    // Patterns that disagree isolate, unless it is with those of `isolated`.
    file = parseConfig(
        "policy p\ncommunity red v1 v2*\ncommunity blue v3* v2\nisolated v*\npromiscuous v3 v4* v5*\n"
        "community green v?");
    const Resolution mixed = resolveConfig(session, file, {});
    roles = {0, 3, 4, 1, 2, 2, 5, 5, 5};
    EXPECT_EQ(wrong(mixed.wanted, 0), 0);
    EXPECT_EQ(
        joinWords(mixed.notes, "; "),
        "v4 is promiscuous by line 5 and community green by line 6 of the policy p: it is isolated until "
        "one of them leaves it out; v5 is promiscuous by line 5 and community green by line 6 of the policy "
        "p: it is isolated until one of them leaves it out");
}

TEST_F(Config, RemovalsWaitForTheClaimsThatReplaceThem) {
    const char* const cases[][3] = {
        // running, wanted; before | tried early | release | after
        {"group 5 1-3", "group 5 1-3", "| | | | "},
        {"mode 1\npon off 8", "mode 2\npon off 9", "p8 | m2 | | p9 | "},
        // Another number for the same ports, and for some of them: only what is isolated again waits.
        {"group 5 1-2", "group 6 1-2", "| +6/1 +6/2 | -5/1 -5/2 | | "},
        {"group 5 1-3", "group 6 1-2 101", "-5/3 | +6/1 +6/2 | -5/1 -5/2 | +6/101 | "},
        {"group 5 1-3\ngroup 6 1-2", "group 6 1-2", "-5/1 -5/2 -5/3 | | | | "},
        {"group 5 1-2", "group 5 2-3", "-5/1 | | | +5/3 | "},
        // A claim of another scope would stay under the old one.
        {"vlan-group 5 vlan 9 1-2", "group 6 1-2", "-5/1 -5/2 | | | +6/1 +6/2 | 1-2 "},
        {"vlan-group 5 vlan 9 1-2\ngroup 3 1 101", "vlan-group 6 vlan 9 1-2\ngroup 7 1-2 101",
         "| +7/101 +6/1 +6/2 | -3/1 -3/101 -5/1 -5/2 | +7/1 +7/2 | 1-101 "},
        // Pairs and groups exclude each other, pairs and VLAN groups do so in one order only.
        {"pair 1 to 2", "group 5 1-2", "-1/2 | | | +5/1 +5/2 | 1-2 "},
        {"vlan-group 5 vlan 9 1-2", "pair 1 to 2", "| +1/2 | -5/1 -5/2 | | "},
        // A created row becomes active in place; the way back is a new entry, behind all activations.
        {"group 5 1-2", "pair 2 to 1\npair 1 to 101", "-5/1 -5/2 | | | +1/101 +2/1 | 1-2 "},
        {"group 5 1-3", "group 5 2-3\npair 2 to 1", "-5/1 | | | +2/1 | 1-2 "},
        {"vlan-group 5 vlan 9 1-2", "vlan-group 6 vlan 8 1-2", "-5/1 -5/2 | | | +6/1 +6/2 | "},
        {"spanning 5\ngroup 5 1", "spanning 7\ngroup 7 1", "s80 -5/1 | | | +7/1 s64 | "},
        {"created group 5 1-2", "group 5 1-2", "| | | a5/1 a5/2 | "},
        {"group 5 1-3", "created group 5 1\ngroup 5 2-3 101", "-5/1 | | | +5/101 c5/1 | "},
    };
    for (const auto& [running, wanted, steps] : cases) {
        EXPECT_EQ(plan(running, wanted), steps) << running << " -> " << wanted;
    }
}

// Traffic between ge1/1 (or a trunk of ge1/2 and ge1/3) and others, by the tables alone.
TEST_F(Config, TablesAreJudgedPortByPort) {
    Tables tables;
    tables.interfaces = {
        {.number = 1, .name = "ge1/1", .present = true, .access = true},
        {.number = 2, .name = "ge1/2", .present = true, .trunk = "lag1"},
        {.number = 3, .name = "ge1/3", .present = true, .trunk = "lag1"},
        {.number = 101, .name = "lag1", .kind = "trunk", .present = true, .members = {"ge1/2", "ge1/3"}},
        {.number = 4, .name = "ge1/4", .present = true, .access = true}};
    // Configuration, and the trunk switches; questions FROM>TO@VLAN: o forwards, x is blocked, p in part.
    const char* const cases[][3] = {
        {"group 5 1 101", "11", "1>101@0x 1>2@0x 4>101@0o"},
        {"group 5 1 101", "00", "1>2@0o 1>101@0x"},  // the trunk's own entry
        {"group 5 1 101", "01", "2>1@0x"},
        {"group 5 1 2", "11", "1>101@0p"},
        {"group 5 1\ncreated group 5 101", "11", "1>101@0p"},  // claimed for ge1/3
        {"created group 5 1 101", "11", "1>101@0o"},
        {"vlan-group 5 vlan 7 1 101", "11", "1>101@0o 1>101@8o 101>1@7x"},
        {"pair 1 to 101", "00", "1>101@0x"},
        {"pair 1 to 101", "11", "101>1@0o"},
        {"pair 101 to 1", "01", "2>1@0o"},
        {"created pair 1 to 101", "11", "1>101@0o"},
        {"pon off 7", "11", "1>4@7o"},
        {"", "11", "1>4@0o 1>4@7x 1>101@7o"},
    };
    tables.claims[{1, 3}] = {5};
    for (const auto& [text, switches, questions] : cases) {
        tables.configuration = resolve(text);
        tables.sourceTrunkToPort = switches[0] == '1';
        tables.targetTrunkToPort = switches[1] == '1';
        for (const std::string& question : splitWords(questions)) {
            uint32_t from = 0, to = 0, vlan = 0;
            ASSERT_EQ(std::sscanf(question.c_str(), "%u>%u@%u", &from, &to, &vlan), 3);
            const Judgement judgement = judgeTables(tables, from, to, vlan);
            EXPECT_EQ("oxp"[static_cast<size_t>(judgement.verdict)], question.back()) << text << question;
            EXPECT_EQ(reasonTexts(tables, judgement).empty(), question.back() == 'o') << text << question;
        }
    }
    // PON isolation holds a trunk that is marked, whatever its members are.
    tables.interfaces[3].access = true;
    EXPECT_TRUE(judgeTables(tables, 1, 101, 7).verdict == Verdict::blocked);
    // The words of what comes close.
    tables.configuration = resolve("created group 5 1-2\nvlan-group 6 vlan 7 1 101\ncreated pair 1 to 101");
    EXPECT_EQ(joinWords(noteTexts(tables, judgeTables(tables, 1, 101, 0)), "; "),
              "group 5 holds ge1/1 and ge1/2, but ge1/1 is not active; "
              "VLAN group 6 holds ge1/1 and lag1 (as ge1/2 and ge1/3), but within VLAN 7 only; "
              "pair ge1/1 to lag1 (as ge1/2 and ge1/3), but it is not active; "
              "PON isolation may hold both within a VLAN: ask with --vlan");
}

}  // namespace
