#include "apps/common/event/notify.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(Notify, EveryKnownIdHasANameAndOthersAreInvalid) {
    const LogCapture log;
    EXPECT_STREQ(eventName({0, 9, 9}), "Invalid");
    EXPECT_STREQ(eventName({3, 0, 0}), "SubscribeAll");
    EXPECT_STREQ(eventName({6, 0, 0}), "VarAppLogLevelChanged");
    for (std::uint32_t id = 6; id < 931; ++id) {
        const std::string name = eventName({id, 0, 0});
        EXPECT_TRUE(name.starts_with("Var") && name.ends_with("Changed")) << id << " " << name;
    }
    EXPECT_THAT(log.messages(), testing::IsEmpty());
    EXPECT_STREQ(eventName({931, 0, 0}), "Invalid");
    EXPECT_STREQ(eventName({0xffffffffU, 0, 0}), "Invalid");
    EXPECT_THAT(log.messages(),
                testing::ElementsAre("Warn Event id 931 is beyond the 931 known events",
                                     "Warn Event id 4294967295 is beyond the 931 known events"));
}

} // namespace
