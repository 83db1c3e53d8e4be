// The writing of texts.
#include "tests/daemon_driver.h"

namespace {

TEST(Report, TheMaskFiltersDebugTextsAndNoLogTexts) {
    ASSERT_EQ(startDaemon(), 0);
    portIsolateDebugMaskSet(6);
    portIsolateDebug(0, 1, "no");
    portIsolateDebug(3, 4, "yes %d\n\r", 1);
    EXPECT_EQ(gPortIsolateTextCategory, 0u);
    portIsolateDebugMaskSet(0);
    portIsolateDebug(5, 0xFFFFFFFF, "no");
    portIsolateLog(7, "%s", std::string(300, 'x').c_str());
    EXPECT_EQ(fake.texts, (Calls{"debug 3/4 yes 1\n\r", "log 7 " + std::string(255, 'x')}));
    const uint8_t priorities[8] = {5, 2, 5, 6, 3, 7, 5, 5};
    EXPECT_EQ(std::memcmp(gPortIsolateLogPri, priorities, sizeof(priorities)), 0);
    EXPECT_STREQ(protoId2Name(198), "port-isolate");
    EXPECT_STREQ(protoId2Name(384), "max-proto");
    EXPECT_STREQ(protoId2Name(385), "unknown");
}

}  // namespace
