#include "apps/live/patch.h"

#include "apps/live/changes.h"
#include "apps/live/presentvalues.h"
#include "apps/live/problem.h"
#include "tests/unit/introspection/fixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;
using testing::ElementsAre;

class PatchTest : public MappedCatalogue {
protected:
    // The status, and of a problem the document.
    std::pair<int, Json> apply(const std::string& body, std::optional<std::uint64_t> since = std::nullopt) {
        try {
            return {200, Json::parse(patch_.apply(body, since).document)};
        } catch (const Problem& problem) {
            const HttpAnswer answer = problem.answer();
            return {answer.status, Json::parse(answer.body)};
        }
    }

    std::string everything() {
        std::string bytes;
        for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
            bytes += memories.bytes(mem);
        return bytes;
    }

    PresentValues values_;
    Changes changes_{values_.all(), 1};
    std::vector<VariableNumber> changed_;
    Patch patch_{values_, changes_, [this](VariableNumber number) { changed_.push_back(number); }};
};

constexpr auto BRIGHTNESS = gen::EventId::VarDisplayBrightnessChanged;

TEST_F(PatchTest, StoresAllAndCountsEachChangeOnce) {
    const auto [status, stored] = apply(R"({"DisplayBrightness": 7, "MemLens.LensFileList[2]":
        {"LensFileName": "Prime 50", "LensFileValid": true}, "MemPersistent.ButtonBrightness": 0})");
    EXPECT_EQ(status, 200) << stored;
    EXPECT_EQ(stored["MemPersistent.DisplayBrightness"], 7);
    EXPECT_EQ(stored["MemLens.LensFileList[2]"]["LensFileName"], "Prime 50");
    EXPECT_EQ(changed_.size(), 2u) << "a value that was there before is no change";
    const std::uint64_t last = changes_.last();
    for (const Notify& event : events.take())
        EXPECT_FALSE(changes_.receive(event.id)) << "the broker returns the process's own events";
    EXPECT_EQ(changes_.last(), last);
    EXPECT_TRUE(changes_.receive(BRIGHTNESS));
}

TEST_F(PatchTest, StoresOnlyWhatHasNotChangedSince) {
    const std::uint64_t seen = changes_.last();
    EXPECT_EQ(apply(R"({"DisplayBrightness": 7})", seen).first, 200);
    const auto [status, problem] = apply(R"({"DisplayBrightness": 8, "ButtonBrightness": 8})", seen);
    EXPECT_EQ(status, 412);
    EXPECT_EQ(problem["errors"][0]["version"], changes_.of(BRIGHTNESS));
    EXPECT_EQ(problem["errors"][0]["value"], 7);
    EXPECT_EQ(get(Variable("ButtonBrightness")), "0");
    EXPECT_EQ(apply(R"({"DisplayBrightness": 8})", changes_.of(BRIGHTNESS)).first, 200);
}

TEST_F(PatchTest, RefusesWhatIsNoObjectOfValues) {
    const std::string deep(500000, '[');
    for (const auto& [body, status] : {std::pair<std::string, int>{"", 400},
                                       {"[]", 400},
                                       {"{\"a\":1", 400},
                                       {"{\"a\":1e999}", 400},
                                       {"{\"DisplayBrightness\":" + deep, 413},
                                       {"{\"DisplayBrightness\":\"\xff\"}", 400}})
        EXPECT_EQ(apply(body).first, status) << body.substr(0, 40);
    Json many = Json::object();
    for (std::size_t i = 0; i <= Patch::MAX_NAMES; ++i)
        many[std::to_string(i)] = 1;
    EXPECT_EQ(apply(many.dump()).first, 413);
    EXPECT_THAT(changed_, ElementsAre());
}

// The code and a value that the leaf refuses with it.
std::vector<std::pair<std::string, Json>> wrongValues(const Reference& leaf) {
    const std::int32_t type =
        leaf.member != nullptr ? leaf.member->baseType : leaf.variable.descriptor().baseType;
    if (type == BaseInt || type == BaseFloat)
        return {{"out-of-bounds", 1e39}, {"out-of-bounds", -1e39}, {"wrong-type", "1"}};
    if (type == BaseBool)
        return {{"wrong-type", 1}};
    if (type == BaseEnum)
        return {{"not-an-entry", "NoSuchEntry"}, {"wrong-type", 0}};
    if (type == BaseBuffer)
        return {{"too-long", std::string(200000, 'a')}, {"wrong-type", "0x"}};
    return {{"too-long", std::string(20000, 'a')}, {"wrong-type", true}};
}

TEST_F(PatchTest, EveryLeafNamesItsErrorAndNothingIsStored) {
    const std::string before = everything();
    for (const VariableId& variable : matchingVariables({})) {
        const Reference leaf = leaves(variable).back();
        for (const auto& [code, wrong] : wrongValues(leaf)) {
            Json body = {{"DisplayBrightness", 5}};
            body[leaf.name()] = wrong;
            const auto [status, problem] = apply(body.dump());
            ASSERT_EQ(status, 422) << leaf.name() << wrong;
            ASSERT_EQ(problem["errors"].size(), 1u) << problem;
            const Json& error = problem["errors"][0];
            ASSERT_EQ(error["variable"], leaf.name());
            ASSERT_EQ(error["code"], code) << error;
            ASSERT_TRUE(error.contains("given") &&
                        error["message"].get<std::string>().starts_with(leaf.name()));
            const bool isEntry = code == "not-an-entry" || error.contains("entries");
            ASSERT_EQ(error.contains("min") && error.contains("max"), !isEntry && wrong != 1) << error;
        }
    }
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(events.take().size(), 0u);
}

} // namespace
