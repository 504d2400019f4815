#include "apps/common/values/checkedset.h"

#include "apps/common/values/plainvalue.h"
#include "apps/common/values/refusal.h"
#include "tests/unit/introspection/fixture.h"

#include <cmath>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

// "<code>: <text>" of the refusal, or "accepted".
std::string outcome(CheckedSet& set, const std::string& name, const Json& value) {
    try {
        set.add(name, value);
        return "accepted";
    } catch (const Refusal& refusal) {
        return std::string(refusal.code()) + ": " + refusal.what();
    }
}

class CheckedSetTest : public MappedCatalogue {};

TEST_F(CheckedSetTest, RefusalsNameVariableValueAndReason) {
    constexpr struct {
        const char* name;
        const char* value;
        const char* outcome;
    } CASES[] = {
        {"FocusTorque", "0", "out-of-bounds: FocusTorque: 0 is not between 1 and 4"},
        {"FocusTorque", "1e300", "out-of-bounds: FocusTorque: 1e+300 is not between 1 and 4"},
        {"FocusTorque", "1.5", "wrong-type: FocusTorque takes a whole number, not 1.5"},
        {"FocusTorque", "4.0", "accepted"},
        {"RadioPower", "1", "wrong-type: RadioPower takes true or false, not 1"},
        {"ProductName", R"("1234567890123456789")", "accepted"},
        {"ProductName", R"("12345678901234567890")", "too-long: ProductName takes at most 19 bytes, not 20"},
        {"ProductName", R"("a\u0000b")",
         "wrong-type: ProductName takes a text without zero characters, not \"a\\u0000b\""},
        {"MemPersistent.DisplayUnit", R"("meter")",
         "not-an-entry: MemPersistent.DisplayUnit: \"meter\" is not an entry of DisplayUnit: Default, Meter, "
         "Feet"},
        {"MemLens.DisplayUnit", "1", "unknown-variable: MemLens.DisplayUnit is not a variable"},
        {"LensFileList[100]", "{}", "not-an-index: LensFileList[100]: the index is not between 0 and 99"},
        {"LensFileList[-1].LensFileName", "1",
         "not-an-index: LensFileList[-1].LensFileName: the index is not between 0 and 99"},
        {"LensFileList.LensFileName", "1",
         "not-an-index: LensFileList.LensFileName: the index of the element is missing"},
        {"FocusMotor[0]", "{}", "not-an-index: FocusMotor[0]: FocusMotor is not an array"},
        {"LensFileList[1].Name", "1", "unknown-variable: LensFileList[1].Name: LensFile has no member Name"},
        {"LensFileList[1].", "1", "unknown-variable: LensFileList[1].: the name of the member is missing"},
        {"FocusMotor.", "1", "unknown-variable: FocusMotor.: the name of the member is missing"},
        {"MemPersistent.FocusTorque.", "1",
         "unknown-variable: MemPersistent.FocusTorque.: the name of the member is missing"},
        {"MemPersistent.", "1", "unknown-variable: MemPersistent. is not a variable"},
        {"LensFileList[1]x", "{}", "unknown-variable: LensFileList[1]x is not a variable"},
        {"LensFileList[", "{}", "unknown-variable: LensFileList[ is not a variable"},
        {"LensFileList[]", "{}", "not-an-index: LensFileList[]: the index is not between 0 and 99"},
        {"LensFileList[99999999999]", "{}",
         "not-an-index: LensFileList[99999999999]: the index is not between 0 and 99"},
        {"", "1", "unknown-variable: \"\" is not a variable"},
        {"LensFileList[1]", R"({"LensFileValid":7})",
         "wrong-type: LensFileList[1].LensFileValid takes true or false, not 7"},
        {"LensFileList", "[{}]", "wrong-type: LensFileList takes an array of 100 elements"},
    };
    CheckedSet set;
    for (const auto& [name, value, expected] : CASES)
        EXPECT_EQ(outcome(set, name, Json::parse(value)), expected);
    EXPECT_EQ(outcome(set, std::string(98, 'a') + "ä" + std::string(99999, 'a'), 1),
              "unknown-variable: " + std::string(98, 'a') + "ä... is not a variable");
}

// Every variable takes its own value, and a refused value leaves every byte as it is.
TEST_F(CheckedSetTest, EveryVariableTakesItsValueAndRefusesOthers) {
    std::string before;
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
        before += memories.bytes(mem);
    for (const VariableId& id : matchingVariables({})) {
        CheckedSet set;
        const VariableDescriptor& variable = id.descriptor();
        const bool isNumber = variable.baseType == BaseInt || variable.baseType == BaseFloat;
        const Json min = isNumber ? Json::parse(Introspection::getVarMin(id.mem, id.var)) : Json();
        const Json present = isNumber ? min : Json::parse(plainValue({id, std::nullopt, nullptr}));
        EXPECT_EQ(outcome(set, id.name(), present), "accepted");
        EXPECT_THAT(outcome(set, id.name(), nullptr), testing::StartsWith("wrong-type: " + id.name()));
        const Json other =
            isNumber ? Json(min.get<double>() - 1 - std::abs(min.get<double>())) : Json::array();
        EXPECT_NE(outcome(set, id.name(), other), "accepted");
    }
    std::string after;
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
        after += memories.bytes(mem);
    EXPECT_EQ(after, before);
}

TEST_F(CheckedSetTest, StoresAllThroughTheSettersAlsoWithoutBroker) {
    const auto fill = [](CheckedSet& set) {
        set.add("FocusTorque", 3);
        set.add("MemLens.LensFileList[2].LensFileName", "Prime 50");
        set.add("LensFileList[2]", {{"LensFileValid", true}});
        set.add("MemMotors.FocusMotor.MotorTarget", 0.1);
    };
    CheckedSet set;
    fill(set);
    set.store();
    EXPECT_EQ(posts(), 4U);
    EXPECT_EQ(plainValue(Reference::parse("FocusTorque")), "3");
    EXPECT_THAT(plainValue(Reference::parse("LensFileList[2]")),
                testing::StartsWith(R"({"LensFileName":"Prime 50","LensFileValid":true,)"));
    EXPECT_EQ(plainValue(Reference::parse("FocusMotor.MotorTarget")), "0.1");
    gServerConnection = nullptr;
    CheckedSet others;
    others.add("FocusTorque", 2);
    others.add("IrisTorque", 4);
    EXPECT_THROW(others.store(), std::runtime_error);
    EXPECT_EQ(plainValue(Reference::parse("FocusTorque")) + plainValue(Reference::parse("IrisTorque")), "24");
}

TEST(Reference, PatternsMatchNamesInTheCataloguesOrder) {
    const auto names = [](const std::vector<std::string>& patterns) {
        std::vector<std::string> found;
        for (const VariableId& variable : matchingVariables(patterns))
            found.push_back(variable.name());
        return found;
    };
    EXPECT_THAT(names({"*Torque", "MemPersistent.F?cusTorque"}),
                testing::ElementsAre("MemPersistent.FocusTorque", "MemPersistent.IrisTorque",
                                     "MemPersistent.ZoomTorque", "MemPersistent.AUXTorque"));
    EXPECT_EQ(matchingVariables({}).size(), matchingVariables({"*"}).size());
    EXPECT_THROW(names({"*", "Mem.*"}), Refusal);
}

} // namespace
