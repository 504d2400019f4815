#include "apps/common/introspection_enum/introspection_enum.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

TEST(IntrospectionEnum, EnumerationsAreFoundByNameAndIndex) {
    EXPECT_EQ(IntrospectionEnum::getEnumIndex("LogLevel"), 0U);
    EXPECT_STREQ(IntrospectionEnum::getEnumName(0), "LogLevel");
    EXPECT_EQ(IntrospectionEnum::getEnumEntryCount(0), 8U);
    EXPECT_STREQ(IntrospectionEnum::getEnumEntryName(0, 7), "Error");
    for (std::uint32_t i = 0; i < IntrospectionEnum::getEnumCount(); ++i) {
        EXPECT_EQ(IntrospectionEnum::getEnumIndex(IntrospectionEnum::getEnumName(i)), i);
    }
}

TEST(IntrospectionEnum, IndexesAndNamesOutsideThrow) {
    LogCapture log;
    const std::uint32_t count = IntrospectionEnum::getEnumCount();
    const auto limit = ThrowsMessage<std::runtime_error>(HasSubstr("Index exceeds limit"));
    EXPECT_THAT([&] { IntrospectionEnum::getEnumName(count); }, limit);
    EXPECT_THAT([&] { IntrospectionEnum::getEnumEntryCount(0xffffffff); }, limit);
    EXPECT_THAT([&] { IntrospectionEnum::getEnumEntryName(0, 8); }, limit);
    EXPECT_THAT([&] { IntrospectionEnum::getEnumEntryName(count, 0); }, limit);
    for (const char* name : {"loglevel", "LogLevel ", ""}) {
        EXPECT_THAT(
            [&] { IntrospectionEnum::getEnumIndex(name); },
            ThrowsMessage<std::runtime_error>(HasSubstr("Unknown enum \"" + std::string(name) + "\"")));
    }
}

TEST(IntrospectionEnum, PrintsValueTypeAndEntries) {
    EXPECT_EQ(IntrospectionEnum::printEnum("Left", "MotorSide"),
              R"({ "value": "Left", "type": "MotorSide", "textid": [ "Left","Right"]})");
    EXPECT_EQ(IntrospectionEnum::printEnum("INVALID_VALUE:9", "SymbolTypes"),
              R"({ "value": "INVALID_VALUE:9", "type": "SymbolTypes", "textid": [ "Lock"]})");
}

} // namespace
