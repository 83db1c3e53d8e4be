// The words of the operator's command: how it reads them and what it makes of foreign text.
#include "common/bytes.h"
#include "common/text.h"
#include "ctl/text/command_line.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"
#include "tests/ctl_fake.h"

namespace {

TEST(CtlArgs, NumbersAreStrict) {
    uint32_t number = 0;
    for (const char* good : {"0", "7", "4294967295", "0x0", "0xffffFFFF"}) {
        EXPECT_TRUE(parseGivenNumber(good, number)) << good;
    }
    EXPECT_EQ(number, 0xFFFFFFFFu);
    for (const char* bad :
         {"", "-1", "+1", " 1", "1 ", "05", "0x", "0x1g", "4294967296", "0x100000000", "1.0"}) {
        EXPECT_FALSE(parseGivenNumber(bad, number)) << bad;
    }
    int64_t milliseconds = 0;
    EXPECT_TRUE(parseSeconds("0.25", milliseconds) && milliseconds == 250);
    EXPECT_TRUE(parseSeconds("86400", milliseconds) && milliseconds == 86400000);
    for (const char* bad : {"", "0", "0.0", "-1", "1.", ".5", "1e3", "86401", "99999999999"}) {
        EXPECT_FALSE(parseSeconds(bad, milliseconds)) << bad;
    }
    std::vector<uint32_t> words;
    EXPECT_TRUE(parseWords("5,0x10,0", words) && words == (std::vector<uint32_t>{5, 16, 0}));
    std::string bytes;
    EXPECT_TRUE(parseHex("00fF", bytes) && bytes == std::string("\0\xff", 2));
    EXPECT_FALSE(parseHex("00fF1", bytes) || parseHex("0g", bytes));
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
    EXPECT_EQ(pickName(names, "pa", "object"), 0u);
    EXPECT_EQ(pickName(names, "port", "object"), 2u);
    const char* const wrong[][2] = {{"po", "x: \"po\" is ambiguous: pon, port or ports"},
                                    {"pairtt", "x: no object \"pairtt\"; did you mean pair?"},
                                    {"piar", "x: no object \"piar\"; did you mean pair?"},
                                    {"", "x: no object \"\"; there are pair, pon, port and ports"}};
    for (const auto& [text, why] : wrong) {
        EXPECT_EQ(endOf([&] { pickName(names, text, "object", "x: "); }), why);
    }
}

TEST(CtlArgs, SignaturesSayWhatIsWrong) {
    const struct {
        const char* signature;
        Words arguments;
        std::vector<Field> options;
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
        EXPECT_EQ(findMisfit(parseSignature(each.signature), each.arguments, each.options), each.wrong)
            << each.signature;
    }
    const CommandLine line =
        parseCommandLine({"--json", "group", "--timeout=0.5", "--dry-run", "--vlan", "7", "--", "--help"});
    EXPECT_TRUE(line.json && !line.help && line.timeoutMs == 500 && line.options.size() == 2);
    EXPECT_EQ(*fieldValue(line.options, "--vlan"), "7");
    EXPECT_EQ(line.words, (Words{"group", "--help"}));
    EXPECT_EQ(endOf([] { parseCommandLine({"--timeout"}); }), "option --timeout lacks its value");
    EXPECT_NE(endOf([] { parseCommandLine({"--timeout", "never"}); }), "");
}

TEST(CtlOutput, ForeignTextIsTamed) {
    EXPECT_EQ(safeText("a\033[1m\xff\xc2\x9b\xc3\xa4%s"), "a\\x1b[1m\\xff\\xc2\\x9b\xc3\xa4%s");
    EXPECT_EQ(jsonText("\"\\\n\x1b\xff\xc3\xa4"), "\"\\\"\\\\\\n\\u001b\xef\xbf\xbd\xc3\xa4\"");
    const Listing listing = {{{"A", "a"}, {nullptr, "b"}},
                             {{textCell("\x1b"), noCell()}, {numberCell(1), listCell({"x"})}}};
    EXPECT_EQ(printedBy([&] { printListing(listing, false); }), "A\n\\x1b\n1\n");
    EXPECT_EQ(printedBy([&] { printListing(listing, true); }),
              "[{\"a\":\"\\u001b\",\"b\":null},\n {\"a\":1,\"b\":[\"x\"]}]\n");
}

}  // namespace
