#include "apps/live/patch.h"

#include "apps/common/values/check.h"
#include "apps/live/changes.h"
#include "apps/live/presentvalues.h"
#include "apps/live/problem.h"
#include "tests/unit/introspection/fixture.h"

#include <cmath>
#include <cstdlib>
#include <exception>
#include <functional>
#include <gmock/gmock.h>
#include <limits>
#include <new>
#include <nlohmann/json.hpp>

namespace {

// Allocations until one fails, and all after it; negative for no limit.
long gAllocations = -1;

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = gAllocations == 0 ? nullptr : std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    gAllocations -= gAllocations > 0 ? 1 : 0;
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

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

    // Applies the body with memory for so many allocations, and ends the process with 0 if nothing is stored.
    // The JSON library's destructors end the process when they cannot allocate.
    [[noreturn]] void applyWith(long allocations, const std::string& body) {
        static std::function<void()> judge;
        judge = [this, before = everything()] {
            gAllocations = -1;
            std::_Exit(everything() == before ? 0 : 1);
        };
        std::set_terminate([] { judge(); });
        gAllocations = allocations;
        try {
            patch_.apply(body, std::nullopt);
        } catch (const std::exception&) { // the connection is closed, or gets the problem
        }
        judge();
        std::abort();
    }

    PresentValues values_;
    Changes changes_{values_.all(), 1};
    std::vector<VariableNumber> changed_;
    Patch patch_{values_, changes_, [this](VariableNumber number) { changed_.push_back(number); }};
};

constexpr auto BRIGHTNESS = gen::EventId::VarDisplayBrightnessChanged;

TEST_F(PatchTest, StoresAllAndCountsEachChangeOnce) {
    const auto [status, stored] = apply(R"({"MemLens.LensFileList[2]": {"LensFileName": "Prime 50",
        "LensFileValid": true}, "DisplayBrightness": 7, "MemPersistent.ButtonBrightness": 0})");
    EXPECT_EQ(status, 200) << stored;
    EXPECT_EQ(stored["MemPersistent.DisplayBrightness"], 7);
    EXPECT_EQ(stored["MemLens.LensFileList[2]"]["LensFileName"], "Prime 50");
    EXPECT_EQ(changed_.size(), 2u) << "a value that was there before is no change";
    const std::uint64_t last = changes_.last();
    const std::vector<Notify> posted = events.take();
    EXPECT_EQ(posted.front().id, BRIGHTNESS) << "values are stored in the order of their names";
    for (const Notify& event : posted)
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
                                       {R"({"FocusTorque": 99, "FocusTorque": 1})", 400},
                                       {R"({"FocusTorque": 1, "MemPersistent.FocusTorque": 1})", 400},
                                       {R"({"FocusMotor": {"MotorTarget": 1, "MotorTarget": 1}})", 400},
                                       {R"({"FocusMotor.MotorTarget": 1, "MemMotors.FocusMotor": {}})", 400},
                                       {std::string("{\"FocusTorque\": 1}\0", 19), 400},
                                       {"{\"DisplayBrightness\":" + deep, 413},
                                       {"{\"DisplayBrightness\":\"\xff\"}", 400}})
        EXPECT_EQ(apply(body).first, status) << body.substr(0, 40);
    Json many = Json::object();
    for (std::size_t i = 0; i <= Patch::MAX_NAMES; ++i)
        many[std::to_string(i)] = 1;
    EXPECT_EQ(apply(many.dump()).first, 413);
    EXPECT_EQ(apply(Json{{"FocusMotor", many}}.dump()).first, 413);
    many.erase("0");
    EXPECT_EQ(apply(many.dump()).second["errors"].size(), 1000u);
    EXPECT_EQ(apply(Json{{"LensFileList", std::vector<int>(Patch::MAX_NAMES + 2)}}.dump()).first, 413);
    EXPECT_EQ(apply(R"({"ProductName": "[[[[[[[[[:,\"{{{{{{{{{"})").first, 422) << "a text that is too long";
    EXPECT_THAT(changed_, ElementsAre());
}

TEST_F(PatchTest, FaultsStoreNoPartOfAnInvalidBatch) {
    const std::string valid = R"({"DisplayBrightness": 7, "MemLens.LensFileList[2]": {"LensFileName":
        "a longer lens name", "LensFileValid": true}, "RadioRegionFlags": "0a0b0c"})";
    const std::string invalid = valid.substr(0, valid.size() - 1) + R"(, "FocusTorque": 99})";
    gAllocations = std::numeric_limits<long>::max();
    apply(invalid);
    const long all = std::numeric_limits<long>::max() - std::exchange(gAllocations, -1);
    for (long count = 0; count < all; ++count)
        ASSERT_EXIT(applyWith(count, invalid), testing::ExitedWithCode(0), "") << count << " allocations";
    gServerConnection = nullptr;
    const std::string before = everything();
    EXPECT_EQ(apply(invalid).first, 422);
    EXPECT_TRUE(everything() == before);
    EXPECT_EQ(apply(valid).first, 500) << "no event can be posted";
    EXPECT_EQ(get(Variable("DisplayBrightness")), "7");
    EXPECT_EQ(changed_.size(), 3u) << "this process's clients get the changes";
}

Acceptance acceptanceOf(const Reference& leaf) {
    return leaf.member != nullptr ? Acceptance::ofMember(*leaf.member)
                                  : Acceptance::ofVariable(leaf.variable);
}

// The code and a value that the leaf refuses with it: of a number, those next to its bounds.
std::vector<std::pair<std::string, Json>> wrongValues(const Acceptance& acceptance) {
    const std::int32_t type = acceptance.baseType;
    if (type == BaseInt)
        return {{"out-of-bounds", std::stoll(acceptance.min) - 1},
                {"out-of-bounds", std::stoll(acceptance.max) + 1},
                {"wrong-type", "1"}};
    if (type == BaseFloat)
        return {{"out-of-bounds", std::nextafter(std::stod(acceptance.min), -HUGE_VAL)},
                {"out-of-bounds", std::nextafter(std::stod(acceptance.max), HUGE_VAL)},
                {"wrong-type", "1"}};
    if (type == BaseBool)
        return {{"wrong-type", 1}};
    if (type == BaseEnum)
        return {{"not-an-entry", "NoSuchEntry"}, {"wrong-type", 0}};
    if (type == BaseBuffer)
        return {{"too-long", std::string(200000, 'a')}, {"wrong-type", "0x"}, {"wrong-type", "abc"}};
    return {{"too-long", std::string(20000, 'a')}, {"wrong-type", true}};
}

TEST_F(PatchTest, EveryLeafNamesItsErrorAndNothingIsStored) {
    const std::string before = everything();
    for (const VariableId& variable : matchingVariables({})) {
        const Reference leaf = leaves(variable).back();
        const Acceptance acceptance = acceptanceOf(leaf);
        const bool isNumber = acceptance.baseType == BaseInt || acceptance.baseType == BaseFloat;
        for (const auto& [code, wrong] : wrongValues(acceptance)) {
            Json body = {{"DisplayBrightness", 5}};
            body[leaf.name()] = wrong;
            const auto [status, problem] = apply(body.dump());
            ASSERT_EQ(status, 422) << leaf.name() << wrong;
            ASSERT_EQ(problem["errors"].size(), 1u) << problem;
            ASSERT_LT(problem.dump().size(), 5000u);
            const Json& error = problem["errors"][0];
            ASSERT_EQ(error["variable"], leaf.name());
            ASSERT_EQ(error["code"], code) << error;
            ASSERT_TRUE(!isNumber || error["given"] == wrong) << error << wrong;
            ASSERT_TRUE(error.contains("given") &&
                        error["message"].get<std::string>().starts_with(leaf.name()));
            ASSERT_EQ(error.contains("entries"), acceptance.baseType == BaseEnum) << error;
            ASSERT_EQ(error.contains("min") && error.contains("max"),
                      acceptance.baseType != BaseEnum && acceptance.baseType != BaseBool)
                << error;
            if (isNumber) {
                ASSERT_EQ(error["min"], std::stod(acceptance.min)) << error;
                ASSERT_EQ(error["max"], std::stod(acceptance.max)) << error;
            }
        }
    }
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(events.take().size(), 0u);
}

} // namespace
