#include "apps/common/introspection/setters.h"

#include "tests/unit/introspection/fixture.h"

#include <cstring>

namespace {

const char* const AXIS_NAMES[] = {"Focus", "Iris", "Zoom"};
const EnumDescriptor AXIS{"Lane", AXIS_NAMES, 3};
const MemberDescriptor MEMBERS[] = {{"Count", 0, BaseInt, 0, nullptr},
                                    {"Ratio", 4, BaseFloat, 0, nullptr},
                                    {"Lane", 8, BaseEnum, 0, &AXIS},
                                    {"On", 12, BaseBool, 0, nullptr},
                                    {"Label", 13, BaseString, 5, nullptr}};
const StructureDescriptor STRUCTURE{"Probe", MEMBERS, 5, 20};

JsonObject pairs(std::initializer_list<std::pair<const char*, const char*>> members) {
    JsonObject object;
    for (const auto& [name, text] : members)
        object.emplace_back(name, JsonObjectValue{text, false});
    return object;
}

// Elements of the test's structure in the memory of a list of the catalogue.
class Structures : public MappedCatalogue {
protected:
    std::string setElement(std::uint32_t index, const JsonObject& object) {
        return setStructureJson(STRUCTURE, memories.base(list.mem), list.mem, list.var,
                                {list.row().event.id, 0, index}, object);
    }
    std::string setText(const char* text) {
        return setStructureIntrospection(STRUCTURE, memories.base(list.mem), list.mem, list.var,
                                         list.row().event, text);
    }
    std::string element(int index) { return getStructureIntrospection(STRUCTURE, address(list), index); }

    const Variable list{"CamClipList0"};
};

constexpr const char* EMPTY = R"({"Count":0,"Ratio":0,"Lane":"Focus","On":false,"Label":""})";
constexpr const char* FULL = R"({"Count":-5,"Ratio":0.1,"Lane":"Zoom","On":true,"Label":"abcd"})";

TEST_F(Structures, ThirdEventWordSelectsTheElement) {
    const JsonObject all = pairs({{"Count", "-5"},
                                  {"Index", "2"},
                                  {"Ratio", "0.1"},
                                  {"Lane", "Iris"},
                                  {"On", "true"},
                                  {"Label", "abcd"},
                                  {"Lane", "Zoom"}});
    EXPECT_EQ(setElement(2, all), "");
    EXPECT_EQ(element(2), FULL);
    EXPECT_EQ(element(1), EMPTY);
    EXPECT_EQ(element(3), EMPTY);
    const std::vector<Notify> posted = events.take();
    ASSERT_EQ(posted.size(), 1U);
    EXPECT_EQ(posted[0].id, list.row().event.id);
    EXPECT_EQ(posted[0].arg2, 2U);
    EXPECT_EQ(setElement(2, pairs({{"Count", "-5"}, {"Label", "abcd"}})), "");
    EXPECT_EQ(setElement(2, pairs({{"Index", "7"}})), "");
    EXPECT_EQ(posts(), 0U);
}

TEST_F(Structures, OneBadMemberLeavesTheElementUnchanged) {
    const std::pair<JsonObject, const char*> cases[] = {
        {pairs({{"Color", "1"}}), "Probe has no member Color"},
        {pairs({{"", "1"}}), "Probe has no member "},
        {pairs({{"Count", "4294967296"}}), "Probe.Count: Can't convert 4294967296 to int"},
        {pairs({{"Ratio", "wide"}}), "Probe.Ratio: Can't convert wide to float"},
        {pairs({{"Lane", "2"}}), "Probe.Lane: 2 is not part of enum Lane"},
        {pairs({{"On", "1"}}), "Probe.On: Value has to be 'true' or 'false'"},
        {pairs({{"Label", "abcde"}}),
         "Probe.Label: A text of 5 bytes does not fit into 5 with its terminator"},
        {{{"Label", {std::string("a\0b", 3), false}}}, "Probe.Label: A text cannot hold a zero character"},
        {{{"Count", {"[1]", true}}}, "Probe.Count: The value has to be a single one"},
    };
    for (const auto& [bad, error] : cases) {
        JsonObject object = pairs({{"Count", "9"}, {"Label", "ok"}});
        object.insert(object.end(), bad.begin(), bad.end());
        EXPECT_EQ(setElement(0, object), error);
    }
    EXPECT_EQ(element(0), EMPTY);
    EXPECT_EQ(posts(), 0U);
}

TEST_F(Structures, OnlyChangedMembersOfTheElementAreWritten) {
    const JsonObject object = pairs({{"On", "true"}});
    std::string expected = memories.bytes(list.mem);
    EXPECT_EQ(setElement(500, object), "Index 500 is outside of CamClipList0 (500)");
    EXPECT_EQ(setElement(0xffffffff, object), "Index -1 is outside of CamClipList0 (500)");
    EXPECT_EQ(memories.bytes(list.mem), expected);
    std::memset(address(list) + 499 * 20, 0x55, 20);
    expected = memories.bytes(list.mem);
    expected[list.row().location + 499 * 20 + 12] = 1;
    EXPECT_EQ(setElement(499, object), "");
    EXPECT_EQ(memories.bytes(list.mem), expected);
}

TEST_F(Structures, JsonTextSetsMembers) {
    EXPECT_EQ(setText(R"({"Count":-5,"Ratio":0.1,"Lane":"Zoom","On":true,"Label":"\u0061bcd"})"), "");
    EXPECT_EQ(element(0), FULL);
    EXPECT_EQ(setText(FULL), "");
    EXPECT_EQ(posts(), 1U);
    std::memset(address(list) + 20 + 4, 0xff, 4);
    EXPECT_EQ(element(1), R"({"Count":0,"Ratio":null,"Lane":"Focus","On":false,"Label":""})") << "NaN";
    const std::string deep = R"({"Count":)" + std::string(200000, '[');
    for (const char* bad :
         {"", "1", "[]", "{\"Count\":1", "{\"Count\":[1]}", "{\"Count\":null}", deep.c_str()})
        EXPECT_EQ(setText(bad), "Can't convert " + std::string(bad) + " to Probe");
    EXPECT_EQ(element(0), FULL);
}

} // namespace
