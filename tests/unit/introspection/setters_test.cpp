#include "apps/common/introspection/setters.h"

#include "tests/unit/introspection/fixture.h"

#include <gmock/gmock.h>

namespace {

class Setters : public MappedCatalogue {
protected:
    // Sets the values and returns what is read after each, with a "!" for each post.
    std::string readBack(const char* name, std::initializer_list<const char*> values) {
        const Variable variable(name);
        std::string read;
        for (const char* value : values) {
            EXPECT_EQ(set(variable, value), "");
            read += get(variable) + std::string(posts(), '!') + " ";
        }
        return read;
    }

    // Expects that each value is refused with an error that ends in `ending`.
    void expectRefused(const char* name, const char* ending, std::initializer_list<const char*> values) {
        const Variable variable(name);
        const std::string before = get(variable);
        for (const char* value : values) {
            EXPECT_THAT(set(variable, value), testing::EndsWith(ending));
            EXPECT_EQ(get(variable), before) << value;
        }
        EXPECT_EQ(posts(), 0U) << name;
    }
};

TEST_F(Setters, NumbersTakeTheFormsOfTheCLibrary) {
    EXPECT_EQ(readBack("FocusTorque", {"0x10", "16", "12abc", " -010", "2147483647", "-2147483648"}),
              "16! 16 12! -8! 2147483647! -2147483648! ");
    expectRefused("FocusTorque", " to int",
                  {"2147483648", "-2147483649", "99999999999999999999", "", " ", "x1"});
    EXPECT_EQ(readBack("LastKnownFocusValue", {"0.1", "0.1f", " -0x1.8p0", "inf", "1e-60", "-0"}),
              "0.100000! 0.100000 -1.500000! inf! 0.000000! -0.000000! ");
    expectRefused("LastKnownFocusValue", " to float", {"", "abc", "1e99", "-1e99", "."});
}

TEST_F(Setters, BoolsAndEnumerationsTakeExactNames) {
    EXPECT_EQ(readBack("RadioPower", {"true", "true", "false", "true"}), "true! true false! true! ");
    *address(Variable("RadioPower")) = 2;
    EXPECT_EQ(readBack("RadioPower", {"true"}), "true! ");
    EXPECT_EQ(*address(Variable("RadioPower")), 1);
    expectRefused("RadioPower", "Value has to be 'true' or 'false'", {"True", "1", "true ", ""});
    EXPECT_EQ(readBack("AppServiceLogLevel", {"Warn", "Warn"}), "Warn! Warn ");
    EXPECT_EQ(*address(Variable("AppServiceLogLevel")), 6);
    expectRefused("AppServiceLogLevel", " is not part of enum LogLevel", {"warn", "Warning", "6", ""});
}

TEST_F(Setters, BuffersTakeHexadecimalPairs) {
    EXPECT_EQ(readBack("RadioRegionFlags", {"0aFf77", "0aff7799", "abc", "", "7"}),
              "0aff77! 0aff77! abc077! abc077! 70c077! ");
    const Variable flags("RadioRegionFlags");
    EXPECT_EQ(set(flags, "12g"), "Can't convert 12g to buffer");
    EXPECT_EQ(get(flags), "12c077") << "bytes before a bad pair stay";
    EXPECT_THAT(log.messages(), testing::Contains("Error Not a valid hex digit: g"));
    expectRefused("RadioRegionFlags", " to buffer", {"zz", "1-", "/", ":", "@", "G", "`"});
}

TEST_F(Setters, StringsAreCutBetweenCharacters) {
    for (const std::string character : {"x", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x8e\xac"}) {
        for (std::size_t before = 15; before <= 19; ++before) {
            const std::string start(before, '.');
            const bool fits = before + character.size() <= 19;
            EXPECT_EQ(readBack("ProductName", {(start + character).c_str()}),
                      (fits ? start + character : start) + "! ");
        }
    }
    const std::string notUtf8(25, '\x80');
    EXPECT_EQ(readBack("ProductName", {notUtf8.c_str(), "Box", "Box"}),
              notUtf8.substr(0, 19) + "! Box! Box! ");
    EXPECT_EQ(std::string(address(Variable("ProductName")), 20), std::string("Box") + std::string(17, '\0'));
}

TEST_F(Setters, EventWordsSelectTheElement) {
    const Variable torque("FocusTorque");
    const auto outcome = [&](std::uint32_t arg1, std::uint32_t arg2, const char* value) {
        const Notify event{torque.row().event.id, arg1, arg2};
        setIntIntrospection(memories.base(torque.mem), torque.mem, torque.var, event, value);
        return get(torque) + std::string(posts(), '!');
    };
    EXPECT_EQ(outcome(0, 7, "7"), "7!");
    EXPECT_EQ(outcome(1, 0, "3"), "3!");
    const std::string before = memories.bytes(torque.mem);
    for (const auto& [arg1, arg2] : {std::pair{1U, 1U}, {1U, 0xffffffffU}, {1U, 0x40000000U}, {2U, 0U}})
        EXPECT_EQ(outcome(arg1, arg2, "9"), "3");
    EXPECT_EQ(memories.bytes(torque.mem), before);
}

} // namespace
