#include "apps/common/introspection/setters.h"

#include "tests/unit/introspection/fixture.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>

namespace {

/// Sets, and tells result, value afterwards and number of posts in one text.
#define EXPECT_SET(variable, value, error, after, count)                                                     \
    EXPECT_EQ(set(variable, value), error) << (value);                                                       \
    EXPECT_EQ(get(variable), after) << (value);                                                              \
    EXPECT_EQ(posts(), count) << (value)

TEST_F(MappedCatalogue, IntegersTakeTheFormsOfStrtolWithin32Bits) {
    const Variable torque("FocusTorque");
    EXPECT_SET(torque, "0x10", "", "16", 1U);
    EXPECT_SET(torque, "16", "", "16", 0U);
    EXPECT_SET(torque, "12abc", "", "12", 1U);
    EXPECT_SET(torque, " -010", "", "-8", 1U);
    EXPECT_SET(torque, "2147483647", "", "2147483647", 1U);
    EXPECT_SET(torque, "-2147483648", "", "-2147483648", 1U);
    for (const char* bad : {"2147483648", "-2147483649", "99999999999999999999", "", " ", "x1"}) {
        EXPECT_SET(torque, bad, "Can't convert " + std::string(bad) + " to int", "-2147483648", 0U);
    }
}

TEST_F(MappedCatalogue, FloatsTakeTheFormsOfStrtofAndPrintSixDecimals) {
    const Variable focus("LastKnownFocusValue");
    EXPECT_SET(focus, "0.1", "", "0.100000", 1U);
    EXPECT_SET(focus, "0.1f", "", "0.100000", 0U);
    EXPECT_SET(focus, " -0x1.8p0", "", "-1.500000", 1U);
    EXPECT_SET(focus, "inf", "", "inf", 1U);
    EXPECT_SET(focus, "1e-60", "", "0.000000", 1U);
    EXPECT_SET(focus, "-0", "", "-0.000000", 1U);
    for (const char* bad : {"", "abc", "1e99", "-1e99", "."}) {
        EXPECT_SET(focus, bad, "Can't convert " + std::string(bad) + " to float", "-0.000000", 0U);
    }
}

TEST_F(MappedCatalogue, BoolsTakeTheTwoWordsAndReadAnyByte) {
    const Variable power("RadioPower");
    EXPECT_SET(power, "true", "", "true", 1U);
    EXPECT_SET(power, "true", "", "true", 0U);
    EXPECT_EQ(*address(power), 1);
    for (const char* bad : {"True", "1", "true ", ""}) {
        EXPECT_SET(power, bad, "Value has to be 'true' or 'false'", "true", 0U);
    }
    EXPECT_SET(power, "false", "", "false", 1U);
    *address(power) = '\x80';
    EXPECT_EQ(get(power), "true");
}

TEST_F(MappedCatalogue, EnumerationsTakeEntryNamesOnly) {
    const Variable level("AppServiceLogLevel");
    EXPECT_SET(level, "Warn", "", "Warn", 1U);
    EXPECT_EQ(*address(level), 6);
    EXPECT_SET(level, "Warn", "", "Warn", 0U);
    for (const char* bad : {"warn", "Warning", "6", ""}) {
        EXPECT_SET(level, bad, std::string(bad) + " is not part of enum LogLevel", "Warn", 0U);
    }
}

TEST_F(MappedCatalogue, ValuesThatAreNoEntryAreReportedAsUnsigned) {
    const Variable level("AppServiceLogLevel");
    const std::int32_t beyond = 8;
    std::memcpy(address(level), &beyond, 4);
    EXPECT_EQ(get(level), "INVALID_VALUE:8");
    std::memset(address(level), 0xff, 4);
    EXPECT_EQ(get(level), "INVALID_VALUE:4294967295");
    EXPECT_THAT(log.messages(),
                testing::IsSupersetOf({"Error Value 8 of enum LogLevel is above number of entries (8)",
                                       "Error Value -1 of enum LogLevel is above number of entries (8)"}));
}

TEST_F(MappedCatalogue, StringsAreCutToTheirFieldAndAlwaysPost) {
    const Variable name("ProductName");
    EXPECT_SET(name, "abcdefghijklmnopqrstuvwxy", "", "abcdefghijklmnopqrs", 1U);
    EXPECT_EQ(address(name)[19], '\0');
    EXPECT_SET(name, "Box", "", "Box", 1U);
    EXPECT_SET(name, "Box", "", "Box", 1U);
    EXPECT_EQ(std::string(address(name), 20), std::string("Box") + std::string(17, '\0'));
    EXPECT_SET(name, "", "", "", 1U);
    const char* const length = std::exchange(name.row().arrayLen, "many");
    EXPECT_SET(name, "x", "Can't convert x to string", "", 0U);
    name.row().arrayLen = length;
}

TEST_F(MappedCatalogue, StringsAreNotCutInsideACharacter) {
    const Variable name("ProductName");
    const std::string filler(17, '.');
    for (const char* character : {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x8e\xac"}) {
        for (std::size_t before = 15; before <= 19; ++before) {
            const std::string start(before, '.');
            const bool fits = before + std::strlen(character) <= 19;
            EXPECT_SET(name, (start + character).c_str(), "", fits ? start + character : start, 1U);
        }
    }
    const std::string notUtf8(25, '\x80');
    EXPECT_SET(name, notUtf8.c_str(), "", notUtf8.substr(0, 19), 1U);
}

TEST_F(MappedCatalogue, StringWithoutTerminatorEndsWithItsField) {
    std::memset(memories.base(0), 'x', MEMORY_ARRAY[0].size);
    EXPECT_EQ(get(Variable("ProductName")), std::string(20, 'x'));
}

TEST_F(MappedCatalogue, BuffersTakeHexadecimalPairsForTheirBytes) {
    const Variable flags("CamClipList0EnabledFlags");
    char* const base = memories.base(flags.mem);
    const auto setBytes = [&](const char* value) {
        const std::string error =
            setBufferIntrospection(base, 2, flags.mem, flags.var, flags.row().event, value);
        return error + "|" + getBufferIntrospection(address(flags), 3) + "|" + std::to_string(posts());
    };
    EXPECT_EQ(setBytes("0aFf77"), "|0aff00|1");
    EXPECT_EQ(setBytes("0aff"), "|0aff00|1");
    EXPECT_EQ(setBytes("abc"), "|abc000|1");
    EXPECT_EQ(setBytes(""), "|abc000|1");
    EXPECT_EQ(setBytes("7"), "|70c000|1");
    EXPECT_EQ(setBytes("zz"), "Can't convert zz to buffer|70c000|0");
    EXPECT_EQ(setBytes("12g"), "Can't convert 12g to buffer|12c000|0");
    EXPECT_EQ(setBytes("1-"), "Can't convert 1- to buffer|12c000|0");
    EXPECT_THAT(log.messages(), testing::Contains("Error Not a valid hex digit: z"));
}

TEST_F(MappedCatalogue, EventWordsSelectTheElement) {
    const Variable torque("FocusTorque");
    char* const base = memories.base(torque.mem);
    const std::uint32_t id = torque.row().event.id;
    const auto setAt = [&](std::uint32_t arg1, std::uint32_t arg2) {
        return setIntIntrospection(base, torque.mem, torque.var, {id, arg1, arg2}, arg2 == 7 ? "7" : "3");
    };
    EXPECT_EQ(setAt(0, 7), "");
    EXPECT_EQ(get(torque), "7");
    EXPECT_EQ(setAt(1, 0), "");
    EXPECT_EQ(get(torque), "3");
    const std::vector<Notify> posted = events.take();
    ASSERT_EQ(posted.size(), 2U);
    EXPECT_EQ(posted[0].arg1 << 8 | posted[0].arg2, 7U);
    EXPECT_EQ(posted[1].arg1 << 8 | posted[1].arg2, 0x100U);
    EXPECT_EQ(setAt(0, 7), "");
    EXPECT_EQ(posts(), 1U);
    const std::string before = memories.bytes(torque.mem);
    for (const auto& [arg1, arg2] : {std::pair{1U, 1U}, {1U, 0xffffffffU}, {1U, 0x40000000U}, {2U, 0U}}) {
        EXPECT_EQ(setAt(arg1, arg2), "");
    }
    EXPECT_EQ(memories.bytes(torque.mem), before);
    EXPECT_EQ(posts(), 0U);
}

TEST(Getters, FloatsPrintAsTheStandardLibraryDoes) {
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        const std::uint32_t bits = static_cast<std::uint32_t>(random());
        float value = 0;
        std::memcpy(&value, &bits, sizeof(value));
        char expected[64];
        std::snprintf(expected, sizeof(expected), "%f", static_cast<double>(value));
        EXPECT_EQ(getFloatIntrospection(&value, 0), expected) << bits;
    }
}

TEST(Getters, ReadTheElementAtAnyAddress) {
    char bytes[13] = {0, 1, 0, 0, 0, '\xfe', '\xff', '\xff', '\xff', 0, 0, '\xc0', '\x3f'};
    EXPECT_EQ(getIntIntrospection(bytes + 1, 0), "1");
    EXPECT_EQ(getIntIntrospection(bytes + 1, 1), "-2");
    EXPECT_EQ(getFloatIntrospection(bytes + 1, 2), "1.500000");
    EXPECT_EQ(getBoolIntrospection(bytes + 1, 1), "false");
    EXPECT_EQ(getBoolIntrospection(bytes + 1, 4), "true");
}

} // namespace
