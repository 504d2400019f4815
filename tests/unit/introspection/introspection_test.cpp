#include "apps/common/introspection/introspection.h"

#include "apps/common/introspection_enum/introspection_enum.h"
#include "tests/unit/introspection/fixture.h"

#include "gen/code/introspection_gen.h"
#include <functional>
#include <gmock/gmock.h>

using testing::EndsWith;

namespace {

TEST(Introspection, UnknownIndexesAndNamesThrow) {
    const LogCapture log;
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[] { Introspection::getMemName(18); }, "Index exceeds limit"},
        {[] { Introspection::getVarCount(18); }, "Index exceeds limit"},
        {[] { Introspection::getVarName(0, 73); }, "Index exceeds limit"},
        {[] { Introspection::getVarValue(18, 0, 0); }, "Index exceeds limit"},
        {[] { Introspection::setVarValue(17, 0xffffffff, "1"); }, "Index exceeds limit"},
        {[] { Introspection::getMemIndex("memapp"); }, "Unknown memory \"memapp\""},
        {[] { IntrospectionEnum::getEnumEntryCount(0xffffffff); }, "Index exceeds limit"},
        {[] { IntrospectionEnum::getEnumEntryName(0, 8); }, "Index exceeds limit"},
        {[] { IntrospectionEnum::getEnumIndex("loglevel"); }, "Unknown enum \"loglevel\""},
    };
    for (const auto& [call, error] : cases)
        EXPECT_THAT(textThrownBy(call), EndsWith(error));
}

TEST(Introspection, NamesAreTextsAndMayBeNull) {
    EXPECT_EQ(MEM_LENS_PROGRAMMING, Introspection::getMemName(16));
    EXPECT_EQ(IntrospectionEnum::getEnumEntryName(0, 7), "Error");
    std::string text = Introspection::getVarArrayLen(0, 0);
    EXPECT_EQ(text += Introspection::getVarType(0, 0), "20string");
    EXPECT_EQ(Introspection::getVarArrayLen(0, 2), nullptr);
    EXPECT_EQ("Var" + std::string(Introspection::getVarName(0, 2)) + "Changed", eventName({206, 0, 0}));
}

TEST(Introspection, UnmappedMemoryIsNotAvailable) {
    const Variable list("MruLensFileList");
    EXPECT_EQ(Introspection::getVarValue(list.mem, list.var, -1), "n/a");
    EXPECT_EQ(Introspection::setVarValue(list.mem, list.var, "{}"), "n/a");
    EXPECT_EQ(Introspection::setVarValueJson(list.mem, list.var, {}, 3), "n/a");
}

TEST_F(MappedCatalogue, ElementsOutsideTheVariableThrow) {
    for (const char* name : {"FocusTorque", "RadioPower", "UserButton1"}) {
        EXPECT_THROW(get(Variable(name), 1), std::runtime_error);
        EXPECT_THROW(get(Variable(name), -1), std::runtime_error);
    }
    EXPECT_NO_THROW(get(Variable("MruLensFileList"), 9));
    EXPECT_THROW(get(Variable("MruLensFileList"), 10), std::runtime_error);
    EXPECT_EQ(get(Variable("ProductName"), 1000), "");
}

// Expects the result of the range check for each value.
void expectVerdict(const std::string& verdict, const char* name, std::initializer_list<const char*> values) {
    const Variable variable(name);
    for (const char* value : values) {
        std::string error;
        const bool isAllowed = Introspection::checkMinMax(variable.mem, variable.var, value, error);
        EXPECT_EQ(error, verdict == "no number" ? "Can't convert \"" + std::string(value) + "\"\n" : "");
        EXPECT_EQ(isAllowed, verdict == "allowed") << name << " " << value;
    }
}

TEST(Introspection, RangeCheckKeepsNumbersInTheirBounds) {
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

TEST(Introspection, FloatWithUpperBoundOnlyIsAboveZero) {
    expectVerdict("allowed", "CircleofConfusion", {"0.05", "1.17549435e-38"}); // rounds to the bound
    expectVerdict("outside", "CircleofConfusion", {"-1", "0", "0.2"});
    expectVerdict("no number", "CircleofConfusion", {"1e99", "1e-39", ""});
}

TEST(Introspection, MatchesOfThePatternAreEscaped) {
    Introspection::setEscapeCharacters("[\\\"]");
    EXPECT_EQ(Introspection::escape("say \"hi\" \\ "), "say \\\"hi\\\" \\ ");
}

} // namespace
