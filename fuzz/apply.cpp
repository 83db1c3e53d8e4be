// The text of a configuration, as apply reads it. The first line is the one that runs, when it is without a
// mistake; the whole text is the wanted one.
#include <string_view>

#include "fuzz/fuzz.h"
#include "lib/configuration/config_plan.h"
#include "lib/configuration/resolution.h"

namespace {

Session board() {
    Session session;
    session.interfacesAsked = true;
    for (uint32_t number = 1; number <= 4; ++number) {
        BoardInterface interface;
        interface.number = number;
        interface.alias = number == 3 ? "red-3" : "";
        interface.name = number < 4 ? "ge1/" + std::to_string(number) : "2-3";
        session.interfaces.push_back(interface);
    }
    return session;
}

Configuration resolved(Session& session, std::string_view text, bool& right) {
    ConfigFile file = parseConfig(text);
    const Configuration configuration = resolveConfig(session, file, {}).wanted;
    right = file.mistakes.empty();
    for (const Mistake& mistake : file.mistakes) {
        EXPECT_GT(mistake.place.line, 0u);
        EXPECT_GT(mistake.place.column, 0u);
    }
    return configuration;
}

size_t steps(const Configuration& running, const Configuration& wanted) {
    const Plan plan = planChanges(running, wanted);
    return plan.before.size() + plan.early.size() + plan.release.size() + plan.after.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    stopAtFailedExpectations();
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    Session session = board();
    bool right = false, again = false;
    const Configuration running = resolved(session, text.substr(0, text.find('\n')), right);
    const Configuration wanted = resolved(session, text, again);
    EXPECT_EQ(steps(wanted, wanted), 0u);
    steps(running, wanted);
    if (!again) return 0;
    // What is written means the same when it is read.
    std::string written;
    for (const std::string& line : configLines(session, wanted)) written += line + "\n";
    const Configuration read = resolved(session, written, again);
    EXPECT_TRUE(again) << written;
    EXPECT_EQ(read.rows, wanted.rows);
    EXPECT_EQ(read.ponOff, wanted.ponOff);
    EXPECT_EQ(read.mode, wanted.mode);
    EXPECT_EQ(read.spanning, wanted.spanning);
    return 0;
}
