// The text of a configuration that `portisolatectl apply` reads: any bytes give lines and mistakes, each in
// its place.
#include <algorithm>

#include "ctl/config_file.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    stopAtFailedExpectations();
    const std::string text(reinterpret_cast<const char*>(bytes), size);
    const ConfigFile file = parseConfig(text);
    const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    Place last;
    for (const Mistake& mistake : file.mistakes) {
        EXPECT_FALSE(mistake.text.empty());
        EXPECT_TRUE(mistake.place.line >= last.line && mistake.place.line <= lines);
        EXPECT_LE(mistake.place.column, size + 1);
        last = mistake.place;
    }
    for (const ConfigLine& line : file.lines) {
        EXPECT_LE(line.place.line, lines);
        for (const uint32_t vlan : line.vlans) EXPECT_TRUE(vlan >= 1 && vlan <= 4095);
        for (const ConfigWord& member : line.members) EXPECT_NE(text.find(member.text), std::string::npos);
    }
    return 0;
}
