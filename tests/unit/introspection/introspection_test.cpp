#include "apps/common/introspection/introspection.h"

#include "apps/common/introspection_enum/introspection_enum.h"
#include "tests/unit/introspection/fixture.h"

#include <gmock/gmock.h>

using testing::EndsWith;

namespace {

TEST(Introspection, IndexesAndNamesOutsideThrow) {
    const LogCapture log;
    const auto limit = EndsWith("Index exceeds limit");
    EXPECT_THAT(textThrownBy([] { Introspection::getMemName(18); }), limit);
    EXPECT_THAT(textThrownBy([] { Introspection::getVarCount(18); }), limit);
    EXPECT_THAT(textThrownBy([] { Introspection::getVarName(0, 73); }), limit);
    EXPECT_THAT(textThrownBy([] { Introspection::getVarValue(18, 0, 0); }), limit);
    EXPECT_THAT(textThrownBy([] { Introspection::setVarValue(17, 0xffffffff, "1"); }), limit);
    EXPECT_THAT(textThrownBy([] { Introspection::getMemIndex("memapp"); }),
                EndsWith("Unknown memory \"memapp\""));
    EXPECT_THAT(textThrownBy([] { IntrospectionEnum::getEnumEntryCount(0xffffffff); }), limit);
    EXPECT_THAT(textThrownBy([] { IntrospectionEnum::getEnumEntryName(0, 8); }), limit);
    EXPECT_THAT(textThrownBy([] { IntrospectionEnum::getEnumIndex("loglevel"); }),
                EndsWith("Unknown enum \"loglevel\""));
}

TEST(Introspection, UnmappedMemoryIsNotAvailable) {
    const Variable list("MruLensFileList");
    EXPECT_EQ(Introspection::getVarValue(list.mem, list.var, -1), "n/a");
    EXPECT_EQ(Introspection::setVarValue(list.mem, list.var, "{}"), "n/a");
    EXPECT_EQ(Introspection::setVarValueJson(list.mem, list.var, {}, 3), "n/a");
}

TEST_F(MappedCatalogue, ElementsOutsideTheVariableAreNotRead) {
    for (const char* name : {"FocusTorque", "RadioPower", "UserButton1"}) {
        EXPECT_THROW(get(Variable(name), 1), std::runtime_error);
        EXPECT_THROW(get(Variable(name), -1), std::runtime_error);
    }
    EXPECT_NO_THROW(get(Variable("MruLensFileList"), 9));
    EXPECT_THROW(get(Variable("MruLensFileList"), 10), std::runtime_error);
    EXPECT_EQ(get(Variable("ProductName"), 1000), "");
}

// What the range check says of each value.
void expectVerdict(const std::string& verdict, const char* name, std::initializer_list<const char*> values) {
    const Variable variable(name);
    for (const char* value : values) {
        std::string error;
        const bool isAllowed = Introspection::checkMinMax(variable.mem, variable.var, value, error);
        EXPECT_EQ(error, verdict == "no number" ? "Can't convert \"" + std::string(value) + "\"\n" : "");
        EXPECT_EQ(isAllowed, verdict == "allowed") << name << " " << value;
    }
}

TEST(Introspection, RangeCheckKeepsNumbersInTheirBoundsAndTakesWhatHasNone) {
    expectVerdict("allowed", "DisplayBrightness", {"0", "10", " 7", "010", "0x99", "9abc"});
    expectVerdict("outside", "DisplayBrightness", {"-1", "11"});
    expectVerdict("no number", "DisplayBrightness", {"abc", "", "99999999999"});
    expectVerdict("allowed", "LostFrameCounter", {"-2147483648", "99999999999", "abc"});
    expectVerdict("allowed", "LastKnownFocusValue", {"-1e37", "1e38"});
    expectVerdict("outside", "LastKnownFocusValue", {"2e38", "nan", "inf"});
    for (const char* name : {"RadioPower", "ProductName", "UserButton1", "MruLensFileList"})
        expectVerdict("allowed", name, {"anything"});
    expectVerdict("outside", "CamClipList0EnabledFlags", {"00"}); // a buffer never has a range
}

TEST(Introspection, RangeCheckOfFloatsWithoutLowerBoundRefusesWhatIsNotAboveZero) {
    expectVerdict("allowed", "CircleofConfusion", {"0.05", "1.17549435e-38"}); // rounds to the smallest bound
    expectVerdict("outside", "CircleofConfusion", {"-1", "0", "0.2"});
    expectVerdict("no number", "CircleofConfusion", {"1e99", "1e-39", ""});
}

TEST(Introspection, CharactersThatThePatternTakesAreEscaped) {
    Introspection::setEscapeCharacters("[\\\"]");
    EXPECT_EQ(Introspection::escape("say \"hi\" \\ "), "say \\\"hi\\\" \\ ");
}

} // namespace
