#include "apps/common/introspection/setters.h"

#include "tests/unit/introspection/fixture.h"

#include <cstdio>
#include <cstring>
#include <random>

namespace {

class Setters : public MappedCatalogue {
protected:
    /// Sets one value after the other, and tells what is read after each, with a "!" when it was posted.
    std::string story(const char* name, std::initializer_list<const char*> values) {
        const Variable variable(name);
        std::string told;
        for (const char* value : values) {
            EXPECT_EQ(set(variable, value), "");
            told += get(variable) + std::string(posts(), '!') + " ";
        }
        return told;
    }

    /// Expects that each value gets the error text, of which "~" is the value, and changes nothing.
    void expectRefused(const char* name, const std::string& error,
                       std::initializer_list<const char*> values) {
        const Variable variable(name);
        const std::string before = get(variable);
        for (const char* value : values) {
            const std::size_t place = error.find('~');
            const std::string own =
                place == std::string::npos ? error : std::string(error).replace(place, 1, value);
            EXPECT_EQ(set(variable, value), own);
            EXPECT_EQ(get(variable), before) << value;
            EXPECT_EQ(posts(), 0U) << value;
        }
    }
};

TEST_F(Setters, NumbersTakeTheFormsOfTheCLibraryWithinTheirTypes) {
    EXPECT_EQ(story("FocusTorque", {"0x10", "16", "12abc", " -010", "2147483647", "-2147483648"}),
              "16! 16 12! -8! 2147483647! -2147483648! ");
    expectRefused("FocusTorque", "Can't convert ~ to int",
                  {"2147483648", "-2147483649", "99999999999999999999", "", " ", "x1"});
    EXPECT_EQ(story("LastKnownFocusValue", {"0.1", "0.1f", " -0x1.8p0", "inf", "1e-60", "-0"}),
              "0.100000! 0.100000 -1.500000! inf! 0.000000! -0.000000! ");
    expectRefused("LastKnownFocusValue", "Can't convert ~ to float", {"", "abc", "1e99", "-1e99", "."});
}

TEST_F(Setters, BoolsAndEnumerationsTakeTheirWordsOnly) {
    EXPECT_EQ(story("RadioPower", {"true", "true", "false", "true"}), "true! true false! true! ");
    EXPECT_EQ(*address(Variable("RadioPower")), 1);
    expectRefused("RadioPower", "Value has to be 'true' or 'false'", {"True", "1", "true ", ""});
    EXPECT_EQ(story("AppServiceLogLevel", {"Warn", "Warn"}), "Warn! Warn ");
    EXPECT_EQ(*address(Variable("AppServiceLogLevel")), 6);
    expectRefused("AppServiceLogLevel", "~ is not part of enum LogLevel", {"warn", "Warning", "6", ""});
}

TEST_F(Setters, BuffersTakeHexadecimalPairsForTheirBytes) {
    EXPECT_EQ(story("RadioRegionFlags", {"0aFf77", "0aff7799", "abc", "", "7"}),
              "0aff77! 0aff77! abc077! abc077! 70c077! ");
    const Variable flags("RadioRegionFlags");
    EXPECT_EQ(set(flags, "12g"), "Can't convert 12g to buffer");
    EXPECT_EQ(get(flags), "12c077") << "the bytes in front of a bad pair are kept";
    expectRefused("RadioRegionFlags", "Can't convert ~ to buffer", {"zz", "1-", "/", ":", "@", "G", "`"});
}

TEST_F(Setters, StringsAreCutToTheirFieldButNotInsideACharacter) {
    for (const std::string character : {"x", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x8e\xac"}) {
        for (std::size_t before = 15; before <= 19; ++before) {
            const std::string start(before, '.');
            const bool fits = before + character.size() <= 19;
            EXPECT_EQ(story("ProductName", {(start + character).c_str()}),
                      (fits ? start + character : start) + "! ");
        }
    }
    const std::string notUtf8(25, '\x80');
    EXPECT_EQ(story("ProductName", {notUtf8.c_str(), "Box", "Box"}), notUtf8.substr(0, 19) + "! Box! Box! ");
    EXPECT_EQ(std::string(address(Variable("ProductName")), 20), std::string("Box") + std::string(17, '\0'));
}

TEST_F(Setters, EventWordsSelectTheElementAndOneOutsideIsNeitherStoredNorPosted) {
    const Variable torque("FocusTorque");
    const auto setAt = [&](std::uint32_t arg1, std::uint32_t arg2, const char* value) {
        const Notify event{torque.row().event.id, arg1, arg2};
        EXPECT_EQ(setIntIntrospection(memories.base(torque.mem), torque.mem, torque.var, event, value), "");
    };
    setAt(0, 7, "7");
    EXPECT_EQ(get(torque), "7");
    setAt(1, 0, "3");
    EXPECT_EQ(get(torque), "3");
    const std::vector<Notify> posted = events.take();
    ASSERT_EQ(posted.size(), 2U);
    EXPECT_EQ(posted[0].arg2, 7U);
    EXPECT_EQ(posted[1].arg1, 1U);
    const std::string before = memories.bytes(torque.mem);
    for (const auto& [arg1, arg2] : {std::pair{1U, 1U}, {1U, 0xffffffffU}, {1U, 0x40000000U}, {2U, 0U}}) {
        setAt(arg1, arg2, "9");
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
