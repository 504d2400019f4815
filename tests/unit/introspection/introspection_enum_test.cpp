#include "apps/common/introspection_enum/introspection_enum.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::EndsWith;

namespace {

TEST(IntrospectionEnum, IndexesAndNamesOutsideThrow) {
    const LogCapture log;
    const std::uint32_t count = IntrospectionEnum::getEnumCount();
    const auto limit = EndsWith("Index exceeds limit");
    EXPECT_THAT(textThrownBy([&] { IntrospectionEnum::getEnumName(count); }), limit);
    EXPECT_THAT(textThrownBy([&] { IntrospectionEnum::getEnumEntryCount(0xffffffff); }), limit);
    EXPECT_THAT(textThrownBy([&] { IntrospectionEnum::getEnumEntryName(0, 8); }), limit);
    EXPECT_THAT(textThrownBy([&] { IntrospectionEnum::getEnumEntryName(count, 0); }), limit);
    for (const std::string name : {"loglevel", "LogLevel ", ""}) {
        EXPECT_THAT(textThrownBy([&] { IntrospectionEnum::getEnumIndex(name); }),
                    EndsWith("Unknown enum \"" + name + "\""));
    }
}

} // namespace
