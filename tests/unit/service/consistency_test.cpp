#include "apps/common/introspection/store.h"
#include "apps/web/service/variables/variabletree.h"
#include "tests/unit/introspection/fixture.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

// A thread stands for another process: it stores two values of a variable in turn, without a pause, while the
// service prints the variable. docs/consistency.md says what may be printed.

namespace {

using Clock = std::chrono::steady_clock;

class Consistency : public testing::Test {
protected:
    // Prints until the value has changed often; at least 300 times, also where the threads share a processor.
    // Expects one of both values in each text, or a mix of 'a' and 'b' if the values `mayMix`; after the last
    // store, expects the value that was stored.
    void printWhileStored(const std::string& name, const std::string& one, const std::string& other,
                          bool mayMix = false) {
        const Variable variable(name);
        char* const field = memories_.base(variable.mem) + variable.row().location;
        ASSERT_EQ(one.size(), variable.row().size) << name;
        VariableTree tree;
        const auto printed = [&] {
            return nlohmann::json::parse(tree.variable(variable.mem, variable.var))
                .at("value")
                .get<std::string>();
        };
        const auto store = [field](const std::string& bytes) {
            storeIfChanged(field, bytes.data(), bytes.size());
        };
        store(one);
        const std::string first = printed();
        store(other);
        const std::string second = printed();
        std::jthread writer([&](const std::stop_token& stop) {
            for (; !stop.stop_requested(); store(other))
                store(one);
        });
        std::string last = second;
        int wrong = 0;
        const auto end = Clock::now() + std::chrono::seconds(1);
        for (int changes = 0; wrong == 0 && changes < 100000 && (changes < 300 || Clock::now() < end);) {
            const std::string value = printed();
            const bool isMixed =
                mayMix && value.size() == first.size() && value.find_first_not_of("ab") == std::string::npos;
            wrong += value == first || value == second || isMixed ? 0 : 1;
            changes += value == last ? 0 : 1;
            last = value;
        }
        EXPECT_EQ(wrong, 0) << name << " was printed as " << last;
        writer.request_stop();
        writer.join();
        EXPECT_EQ(printed(), second) << name;
    }

    Memories memories_;
};

TEST_F(Consistency, ValuesOfUpTo32BitsAreOldOrNew) {
    printWhileStored("FocusTorque", "\x01\x02\x03\x04", "\x7f\x7e\x7d\x7c");
    printWhileStored("CamSpeedAct", "\x01\x02\x03\x44", "\x7f\x7e\x7d\x3c");
    printWhileStored("AppGuiLogLevel", std::string(4, '\0'), std::string("\7\0\0\0", 4));
    printWhileStored("RadioPower", std::string(1, '\0'), "\1");
}

TEST_F(Consistency, LongerOnesMayMixAndTheLastIsPrinted) {
    printWhileStored("CamFWVersion", std::string(32, 'a'), std::string(32, 'b'), true);
    printWhileStored("CamClipList0EnabledFlags", std::string(64, '\xaa'), std::string(64, '\xbb'), true);
}

} // namespace
