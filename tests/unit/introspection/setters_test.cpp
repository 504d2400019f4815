#include "apps/common/introspection/setters.h"

#include "tests/unit/introspection/fixture.h"

#include <cstdio>
#include <cstring>
#include <random>

namespace {

class Setters : public MappedCatalogue {
protected:
    /// Sets, and tells error, value afterwards and number of posts.
    std::string outcome(const Variable& variable, const std::string& value) {
        const std::string error = set(variable, value.c_str());
        return error + "|" + get(variable) + "|" + std::to_string(posts());
    }

    void expectOutcomes(const char* name,
                        std::initializer_list<std::pair<const char*, const char*>> valuesAndOutcomes) {
        for (const auto& [value, expected] : valuesAndOutcomes) {
            EXPECT_EQ(outcome(Variable(name), value), expected) << name << " " << value;
        }
    }

    void expectRefused(const char* name, std::initializer_list<std::string> values, const std::string& before,
                       const std::string& behind) {
        const std::string unchanged = "|" + get(Variable(name)) + "|0";
        for (const std::string& value : values) {
            EXPECT_EQ(outcome(Variable(name), value), before + value + behind + unchanged);
        }
    }
};

TEST_F(Setters, IntegersTakeTheFormsOfStrtolWithin32Bits) {
    expectOutcomes("FocusTorque", {{"0x10", "|16|1"},
                                   {"16", "|16|0"},
                                   {"12abc", "|12|1"},
                                   {" -010", "|-8|1"},
                                   {"2147483647", "|2147483647|1"},
                                   {"-2147483648", "|-2147483648|1"}});
    expectRefused("FocusTorque", {"2147483648", "-2147483649", "99999999999999999999", "", " ", "x1"},
                  "Can't convert ", " to int");
}

TEST_F(Setters, FloatsTakeTheFormsOfStrtofAndPrintSixDecimals) {
    expectOutcomes("LastKnownFocusValue", {{"0.1", "|0.100000|1"},
                                           {"0.1f", "|0.100000|0"},
                                           {" -0x1.8p0", "|-1.500000|1"},
                                           {"inf", "|inf|1"},
                                           {"1e-60", "|0.000000|1"},
                                           {"-0", "|-0.000000|1"}});
    expectRefused("LastKnownFocusValue", {"", "abc", "1e99", "-1e99", "."}, "Can't convert ", " to float");
}

TEST_F(Setters, BoolsAndEnumerationsTakeTheirWordsOnly) {
    expectOutcomes("RadioPower", {{"true", "|true|1"}, {"true", "|true|0"}});
    EXPECT_EQ(*address(Variable("RadioPower")), 1);
    for (const char* bad : {"True", "1", "true ", ""}) {
        EXPECT_EQ(outcome(Variable("RadioPower"), bad), "Value has to be 'true' or 'false'|true|0");
    }
    expectOutcomes("RadioPower", {{"false", "|false|1"}});
    expectOutcomes("AppServiceLogLevel", {{"Warn", "|Warn|1"}, {"Warn", "|Warn|0"}});
    EXPECT_EQ(*address(Variable("AppServiceLogLevel")), 6);
    expectRefused("AppServiceLogLevel", {"warn", "Warning", "6", ""}, "", " is not part of enum LogLevel");
}

TEST_F(Setters, StringsAreCutToTheirFieldButNotInsideACharacter) {
    const Variable name("ProductName");
    for (const std::string character : {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x8e\xac"}) {
        for (std::size_t before = 15; before <= 20; ++before) {
            const std::string start(before, '.');
            const std::string whole = before + character.size() <= 19 ? start + character : start;
            EXPECT_EQ(outcome(name, start + character), whole.substr(0, 19).insert(0, "|") + "|1");
        }
    }
    EXPECT_EQ(outcome(name, std::string(25, '\x80')), "|" + std::string(19, '\x80') + "|1"); // no UTF-8
    expectOutcomes("ProductName", {{"Box", "|Box|1"}, {"Box", "|Box|1"}});
    EXPECT_EQ(std::string(address(name), 20), std::string("Box") + std::string(17, '\0'));
}

TEST_F(Setters, BuffersTakeHexadecimalPairsForTheirBytes) {
    expectOutcomes("RadioRegionFlags", {{"0aFf77", "|0aff77|1"},
                                        {"0aff7799", "|0aff77|1"},
                                        {"abc", "|abc077|1"},
                                        {"", "|abc077|1"},
                                        {"7", "|70c077|1"},
                                        {"12g", "Can't convert 12g to buffer|12c077|0"}});
    expectRefused("RadioRegionFlags", {"zz", "1-", "/", ":", "@", "G", "`"}, "Can't convert ", " to buffer");
}

TEST_F(Setters, EventWordsSelectTheElement) {
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

} // namespace
