#include "apps/common/introspection/store.h"
#include "apps/live/presentvalues.h"
#include "apps/web/service/variables/variabletree.h"
#include "tests/unit/introspection/fixture.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

// A thread stands for another process: it stores two values of a variable in turn, without a pause, while the
// service and the process for version 2 print the variable. docs/consistency.md says what may be printed.

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

std::string repeated(const std::string& text, int count) {
    std::string result;
    while (count-- > 0)
        result += text;
    return result;
}

bool isMix(const Json& value, const Json& old) {
    return value.is_string() && value.get<std::string>().find_first_not_of("ab") == std::string::npos &&
           value.get<std::string>().size() == old.get<std::string>().size();
}

// Whether each number, bool and entry is that of one of both values; texts may mix 'a' and 'b'.
bool isOldOrNew(const Json& printed, const Json& one, const Json& other) {
    const Json leaves = printed.flatten();
    const Json ones = one.flatten();
    const Json others = other.flatten();
    return leaves.size() == ones.size() && std::ranges::all_of(leaves.items(), [&](const auto& leaf) {
               const Json& old = ones.at(leaf.key());
               return leaf.value() == old || leaf.value() == others.at(leaf.key()) ||
                      isMix(leaf.value(), old);
           });
}

class Consistency : public testing::Test {
protected:
    // By both processes.
    Json printed(const Variable& variable) {
        const Json json = Json::parse(tree_.variable(variable.mem, variable.var));
        return {json.is_array() ? json : json.at("value"),
                Json::parse(values_.text(variable.row().event.id))};
    }
    char* field(const Variable& variable) { return memories_.base(variable.mem) + variable.row().location; }

    // Prints until the value has changed often; at least 20 times, also where the threads share a processor.
    // After the last store, expects the value that was stored.
    void printWhileStored(const std::string& name, const std::string& one, const std::string& other) {
        const Variable variable(name);
        ASSERT_EQ(one.size(), variable.row().size) << name;
        // Word by word, as a compiler stores the members of a structure.
        const auto store = [target = field(variable)](const std::string& bytes) {
            for (std::size_t at = 0; at < bytes.size(); at += 4)
                storeIfChanged(target + at, bytes.data() + at, std::min<std::size_t>(4, bytes.size() - at));
        };
        store(one);
        const Json first = printed(variable);
        store(other);
        const Json second = printed(variable);
        std::jthread writer([&](const std::stop_token& stop) {
            for (; !stop.stop_requested(); store(other))
                store(one);
        });
        Json last = second;
        bool isGood = true;
        const auto end = Clock::now() + std::chrono::milliseconds(500);
        for (int changes = 0; isGood && changes < 100000 && (changes < 20 || Clock::now() < end);) {
            const Json value = printed(variable);
            isGood = isOldOrNew(value, first, second);
            changes += value == last ? 0 : 1;
            last = value;
        }
        EXPECT_TRUE(isGood) << name << " was printed as " << last;
        writer.request_stop();
        writer.join();
        EXPECT_EQ(printed(variable), second) << name;
    }

    Memories memories_;
    VariableTree tree_;
    PresentValues values_;
};

TEST_F(Consistency, ValuesOfUpTo32BitsAreOldOrNew) {
    printWhileStored("FocusTorque", "\x01\x02\x03\x04", "\x7f\x7e\x7d\x7c");
    printWhileStored("CamSpeedAct", "\x01\x02\x03\x44", "\x7f\x7e\x7d\x3c");
    printWhileStored("AppGuiLogLevel", std::string(4, '\0'), std::string("\7\0\0\0", 4));
    printWhileStored("RadioPower", std::string(1, '\0'), "\1");
}

TEST_F(Consistency, MembersOfStructuresAreOldOrNewAndTextsMayMix) {
    const std::string radio("\1\0\0\0\1\0\0\0\x7f\x7e\x7d\x7c\1\2\3\4\1\1\1\0", 20);
    printWhileStored("RadioModuleList", std::string(60, '\0'), repeated(radio, 3));
    printWhileStored("CamUserButtons", repeated(std::string(48, 'a') + std::string(2, '\0'), 15),
                     repeated(std::string(48, 'b') + "\1\1", 15));
    printWhileStored("CamFWVersion", std::string(32, 'a'), std::string(32, 'b'));
    printWhileStored("CamClipList0EnabledFlags", std::string(64, '\xaa'), std::string(64, '\xbb'));
}

TEST_F(Consistency, HalfStoredTextIsPrintedAndAgainWhenItIsWhole) {
    const Variable variable("CamFWVersion");
    for (const auto& [stored, expected] :
         {std::pair(std::string(32, 'a'), '"' + std::string(32, 'a') + '"'),
          std::pair(std::string("bb"), "\"bb" + std::string(30, 'a') + '"'),
          std::pair(std::string("b\xc3"), std::string("invalid UTF-8")),
          std::pair(std::string("b\xc3\xa4\0", 4), std::string("\"b\xc3\xa4\""))}) {
        stored.copy(field(variable), stored.size());
        const std::string& text = tree_.variable(variable.mem, variable.var);
        EXPECT_NE(text.find(expected), std::string::npos) << text;
    }
}

} // namespace
