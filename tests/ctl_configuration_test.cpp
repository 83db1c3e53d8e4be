// The configuration as a text and as a whole: reading, writing, the plan from one to another, and what it
// means for traffic.
#include <fmt/format.h>

#include <cstdio>

#include "client/configuration/config_plan.h"
#include "client/configuration/judgement_text.h"
#include "client/configuration/openings.h"
#include "common/text.h"
#include "tests/ctl_fake.h"

namespace {

// What a text means on the board.
struct Config : Ctl {
    Configuration resolve(const std::string& text, std::string* mistakes = nullptr) {
        ConfigFile file = parseConfig(text);
        const Configuration configuration = resolveConfig(session, file);
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
                const char* const signs[] = {"m", "p", "-", "c", "+", "a"};
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
        {"mode 1\nmode 2", "2:6 the mode was set before, in line 1\n"},
        {"\xc3\xa4 \xff\nmode 1 \xc3\xa4\xc3\xa4 z",
         "1:1 \"\xc3\xa4\" does not begin a line; these do: created, mode, group, vlan-group, pair and pon\n"
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
        "mode 2\ngroup 5 ge1/1 3 0x3 lag1-2-2\ncreated group 6 71-73 2-4-4\nvlan-group 7 vlan 10 ge1/1 "
        "lag1-2-2\n"
        "pair 3 to 71-73\npon off 1 30-33 4095\n";
    std::string again;
    for (const std::string& line : configLines(session, resolve(text))) again += line + "\n";
    EXPECT_EQ(again, text);
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
