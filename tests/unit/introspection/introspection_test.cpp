#include "apps/common/introspection/introspection.h"

#include "tests/unit/introspection/fixture.h"

#include <gmock/gmock.h>

#include <utility>

using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

TEST(Introspection, MemoriesStandInTheirOrderWithTheirCounts) {
    std::string memories;
    for (std::uint32_t mem = 0; mem < Introspection::getMemCount(); ++mem) {
        const std::string name = Introspection::getMemName(mem);
        memories += name.substr(3) + " " + std::to_string(Introspection::getVarCount(mem)) + " ";
        EXPECT_EQ(Introspection::getMemIndex(name), mem);
    }
    EXPECT_EQ(memories,
              "Persistent 73 Dynamic 77 DistanceMeasure 90 Camera 109 Static 11 Lens 32 LensMarkers 42 "
              "ExternalDevices 13 Motors 42 HwControl 45 Bluetooth 5 GuiLocal 151 ServiceMode 32 "
              "DeviceState 13 Media 17 UserSetups 11 LensProgramming 36 App 17 ");
}

TEST(Introspection, IndexesAndNamesOutsideThrow) {
    LogCapture log;
    const auto limit = ThrowsMessage<std::runtime_error>(HasSubstr("Index exceeds limit"));
    EXPECT_THAT([] { Introspection::getMemName(18); }, limit);
    EXPECT_THAT([] { Introspection::getVarCount(18); }, limit);
    EXPECT_THAT([] { Introspection::getVarName(0, 73); }, limit);
    EXPECT_THAT([] { Introspection::getVarValue(18, 0, 0); }, limit);
    EXPECT_THAT([] { Introspection::setVarValue(17, 0xffffffff, "1"); }, limit);
    EXPECT_THAT([] { Introspection::getMemIndex("memapp"); },
                ThrowsMessage<std::runtime_error>(HasSubstr("Unknown memory \"memapp\"")));
}

TEST(Introspection, EveryEventLeadsBackToItsVariable) {
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
        for (std::uint32_t var = 0; var < Introspection::getVarCount(mem); ++var) {
            std::uint32_t foundMem = 99;
            std::uint32_t foundVar = 99;
            Introspection::getVarLocation(Introspection::getVarEvent(mem, var), foundMem, foundVar);
            EXPECT_EQ(std::pair(foundMem, foundVar), std::pair(mem, var));
        }
    }
    EXPECT_EQ(Introspection::getVarEvent(0, 0).id, 198U);
}

TEST(Introspection, EventsOfNoVariableLeadToTheFirstAndUnknownIdsAreReported) {
    LogCapture log;
    for (const std::uint32_t id : {0U, 5U, 931U, 960U, 0xffffffffU}) {
        std::uint32_t mem = 99;
        std::uint32_t var = 99;
        Introspection::getVarLocation({id, 0, 0}, mem, var);
        EXPECT_EQ(std::pair(mem, var), std::pair(0U, 0U));
    }
    EXPECT_THAT(log.messages(),
                testing::ElementsAre("Warn Event id 931 is beyond the 931 known events",
                                     "Warn Event id 960 is beyond the 931 known events",
                                     "Warn Event id 4294967295 is beyond the 931 known events"));
}

TEST(Introspection, ArraysAreStringsAndStructureListsOnly) {
    for (const auto& [name, expected] : {std::pair{"ProductName", true},
                                         {"MruLensFileList", true},
                                         {"RadioPower", false},
                                         {"CamClipList0EnabledFlags", false}}) {
        const Variable variable(name);
        EXPECT_EQ(Introspection::isArray(variable.mem, variable.var), expected) << name;
    }
}

TEST(Introspection, BoundsComeFromTheCatalogueElseFromTheType) {
    const auto bounds = [](const char* name) {
        const Variable variable(name);
        return Introspection::getVarMin(variable.mem, variable.var) + " " +
               Introspection::getVarMax(variable.mem, variable.var);
    };
    EXPECT_EQ(bounds("FocusTorque"), "1 4");
    EXPECT_EQ(bounds("LastKnownFocusValue"), "-1e+38 1e+38");
    EXPECT_EQ(bounds("RadioPower"), "0 1");
    EXPECT_EQ(bounds("ProductName"), "0 0");
    EXPECT_EQ(bounds("ModemType"), "0 3");
    EXPECT_EQ(bounds("AppServiceLogLevel"), "0 7");
    EXPECT_EQ(bounds("MruLensFileList"), "0 0");
    const Variable variable("FocusTorque");
    VariableDescriptor bare = variable.row();
    bare.min = bare.max = nullptr;
    std::swap(variable.row(), bare);
    EXPECT_EQ(bounds("FocusTorque"), "-2147483648 2147483647");
    variable.row().baseType = BASE_FLOAT;
    EXPECT_EQ(bounds("FocusTorque"), "-1e38 1e38");
    std::swap(variable.row(), bare);
}

TEST(Introspection, UnmappedMemoryIsNotAvailable) {
    const Variable list("MruLensFileList");
    EXPECT_EQ(Introspection::getVarValue(list.mem, list.var, -1), "n/a");
    EXPECT_EQ(Introspection::setVarValue(list.mem, list.var, "{}"), "n/a");
    EXPECT_EQ(Introspection::setVarValueJson(list.mem, list.var, {}, 3), "n/a");
    EXPECT_EQ(list.row().event.arg2, 0U);
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

bool isAllowed(const char* name, const char* value, std::string& error) {
    const Variable variable(name);
    return Introspection::checkMinMax(variable.mem, variable.var, value, error);
}

TEST(Introspection, RangeCheckKeepsIntegersInTheirBounds) {
    std::string error;
    for (const char* good : {"0", "10", " 7", "010", "0x99", "9abc"}) {
        EXPECT_TRUE(isAllowed("DisplayBrightness", good, error)) << good;
    }
    for (const char* bad : {"-1", "11"}) {
        EXPECT_FALSE(isAllowed("DisplayBrightness", bad, error)) << bad;
    }
    EXPECT_EQ(error, "");
    for (const char* bad : {"abc", "", "99999999999"}) {
        EXPECT_FALSE(isAllowed("DisplayBrightness", bad, error));
        EXPECT_EQ(error, "Can't convert \"" + std::string(bad) + "\"\n");
    }
}

TEST(Introspection, RangeCheckOfFloatsWithoutLowerBoundRefusesNegatives) {
    std::string error;
    EXPECT_TRUE(isAllowed("LastKnownFocusValue", "-1e37", error));
    EXPECT_FALSE(isAllowed("LastKnownFocusValue", "2e38", error));
    EXPECT_FALSE(isAllowed("LastKnownFocusValue", "nan", error));
    const Variable variable("LastKnownFocusValue");
    VariableDescriptor row = variable.row();
    row.min = nullptr;
    row.max = "100";
    std::swap(variable.row(), row);
    EXPECT_FALSE(isAllowed("LastKnownFocusValue", "-1", error));
    EXPECT_FALSE(isAllowed("LastKnownFocusValue", "0", error));
    EXPECT_TRUE(isAllowed("LastKnownFocusValue", "0.5", error));
    EXPECT_EQ(error, "");
    EXPECT_FALSE(isAllowed("LastKnownFocusValue", "1e99", error));
    EXPECT_EQ(error, "Can't convert \"1e99\"\n");
    EXPECT_TRUE(isAllowed("LastKnownFocusValue", "1.17549435e-38", error)); // rounds to the smallest bound
    EXPECT_FALSE(isAllowed("LastKnownFocusValue", "1e-39", error));
    EXPECT_EQ(error, "Can't convert \"1e-39\"\n");
    EXPECT_FALSE(isAllowed("LastKnownFocusValue", "", error));
    EXPECT_EQ(error, "Can't convert \"\"\n");
    std::swap(variable.row(), row);
}

TEST(Introspection, RangeCheckTakesWhatHasNoOrderAndNeverBuffers) {
    std::string error;
    for (const char* name : {"RadioPower", "ProductName", "UserButton1", "MruLensFileList"}) {
        EXPECT_TRUE(isAllowed(name, "anything", error)) << name;
    }
    EXPECT_FALSE(isAllowed("CamClipList0EnabledFlags", "00", error));
}

TEST(Introspection, PrintsTheTextsOfTheWebInterface) {
    EXPECT_EQ(Introspection::printBool(true),
              "{ \"value\": \"true\", \"type\": \"bool\", \"textid\": [ \"false\", \"true\" ]}");
    EXPECT_EQ(Introspection::printBool(false),
              "{ \"value\": \"false\", \"type\": \"bool\", \"textid\": [ \"false\", \"true\" ]}");
    EXPECT_EQ(Introspection::printValue("3", "int", "0", "10"),
              R"({"max":"10","min":"0","type":"int","value":"3"})");
    EXPECT_EQ(Introspection::printValue("a\"\\\n\x01\xc3\xa9", "string", "", ""),
              "{\"max\":\"\",\"min\":\"\",\"type\":\"string\",\"value\":\"a\\\"\\\\\\n\\u0001\xc3\xa9\"}");
    Introspection::setEscapeCharacters("[\\\"]");
    EXPECT_EQ(Introspection::escape("say \"hi\" \\ "), "say \\\"hi\\\" \\ ");
    Introspection::setEscapeCharacters("[a-c]");
    EXPECT_EQ(Introspection::escape("abcd"), "\\a\\b\\cd");
}

} // namespace
