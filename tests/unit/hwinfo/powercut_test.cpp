#include "apps/libs/lhwinfo/hwinfo.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/hwinfo/image.h"

#include <csignal>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <vector>

// A power cut leaves what the processor has stored so far. So a child does the work one machine instruction
// at a time, every state of the block that it passes through is kept, and the next start is tried on each.

namespace {

constexpr off_t CARD = 0x100000;
constexpr std::size_t KEPT = 512;
constexpr int NOT_STEPPED = 77;

class PowerCut : public testing::Test {
protected:
    using Work = std::function<void(HwInfo&)>;

    ~PowerCut() override { munmap(block_, KEPT); }

    /// All states from the first to the last store. Empty where a child cannot be stepped.
    std::vector<std::string> statesOf(const std::string& block, const Work& work) {
        card_.write(CARD, block);
        HwInfo info(memory_.path(), card_.path());
        info.examine();
        const pid_t child = fork();
        if (child == 0) {
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) < 0) {
                _exit(NOT_STEPPED);
            }
            raise(SIGSTOP);
            work(info);
            _exit(0);
        }
        return follow(child);
    }

    std::vector<std::string> follow(pid_t child) {
        std::vector<std::string> states{std::string(block_, KEPT)};
        int status = 0;
        while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
            if (std::memcmp(block_, states.back().data(), KEPT) != 0) {
                states.emplace_back(block_, KEPT);
            }
            if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) < 0) {
                kill(child, SIGKILL);
                states.clear();
            }
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == NOT_STEPPED) {
            states.clear();
        }
        EXPECT_TRUE(states.empty() || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
        return states;
    }

    /// What the next start makes of a state: "damaged" or its values.
    std::string startOn(const std::string& state) {
        card_.write(CARD, state);
        const LogCapture log;
        HwInfo info(memory_.path(), card_.path());
        info.initialize();
        std::ostringstream values;
        info.printParameters(values);
        const bool isDamaged = log.text().find("Wrong checksum, setting defaults.") != std::string::npos;
        return isDamaged ? "damaged" : values.str();
    }

    /// What the next start makes of all states, one entry where several follow each other that give the same.
    std::vector<std::string> startsOn(const std::vector<std::string>& states) {
        std::vector<std::string> starts;
        for (const std::string& state : states) {
            if (const std::string start = startOn(state); starts.empty() || start != starts.back()) {
                starts.push_back(start);
            }
        }
        return starts;
    }

    Image memory_{0x20CC06C};
    Image card_{CARD + 0x10000};
    char* block_ = static_cast<char*>(mmap(nullptr, KEPT, PROT_READ, MAP_SHARED, card_.fd(), CARD));
};

#define STATES_OR_SKIP(name, block, work)                                                                    \
    const std::vector<std::string> name = statesOf(block, work);                                             \
    if (name.empty())                                                                                        \
    GTEST_SKIP() << "no child can be stepped one instruction at a time here, as in an emulator"

TEST_F(PowerCut, ValueIsTheOldOneOrDamagedOrTheNewOne) {
    const std::string before = validBlock(5, 348, "K1-00042");
    STATES_OR_SKIP(states, before, [](HwInfo& info) { info.write("serial=K2-7 and what follows"); });
    EXPECT_GT(states.size(), 20u);
    const std::string after = validBlock(5, 348, "K2-7 and what follows");
    EXPECT_EQ(states.back().substr(0, 348), after);
    EXPECT_EQ(startsOn(states), (std::vector{startOn(before), std::string("damaged"), startOn(after)}));
}

TEST_F(PowerCut, ChecksumAloneIsOneStore) {
    STATES_OR_SKIP(states, word(5) + word(348) + word(0) + "new",
                   [](HwInfo& info) { info.updateChecksum(); });
    ASSERT_EQ(states.size(), 2u);
    EXPECT_EQ(states.back().substr(0, 348), validBlock(5, 348, "new"));
}

TEST_F(PowerCut, ClearingLeavesTheOldBlockOrADamagedOneOrTheDefaults) {
    for (const std::uint32_t length : {348u, 400u}) {
        const std::string before = validBlock(4, length, std::string(length - 12, 'x'));
        STATES_OR_SKIP(states, before, [](HwInfo& info) { info.clear(); });
        EXPECT_GT(states.size(), 300u);
        EXPECT_EQ(states.back().substr(0, 348), validBlock(5, 348, ""));
        const std::string old = startOn(before);
        EXPECT_EQ(startsOn(states), (std::vector{old, std::string("damaged"), startOn(states.back())}));
    }
}

TEST_F(PowerCut, GrowingNeverLosesTheOldValues) {
    card_.write(CARD + 168, std::string(200, 'x'));
    const std::string before = validBlock(3, 168, "K1-00042");
    STATES_OR_SKIP(states, before, [](HwInfo& info) { info.initialize(); });
    EXPECT_GT(states.size(), 180u);
    const std::string after = validBlock(5, 348, "K1-00042");
    EXPECT_EQ(states.back().substr(0, 348), after);
    EXPECT_EQ(startsOn(states), std::vector{startOn(after)});
}

} // namespace
