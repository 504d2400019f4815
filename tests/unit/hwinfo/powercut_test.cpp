#include "apps/libs/lhwinfo/tool/commands.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/hwinfo/image.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

// A power cut leaves what the processor has stored so far. A child does the work one machine instruction at a
// time, the test keeps every state of the block, and initializes from each of them.

namespace {

using testing::AnyOf;

constexpr std::size_t REGISTER = 0x20CC068;
constexpr std::size_t CARD = 0x100000;
constexpr std::size_t KEPT = 512;

class PowerCut : public testing::Test {
protected:
    // Runs `work` in a child on the block and calls `look` after each of its instructions, until that returns
    // false. Returns false where a child cannot be stepped, as in an emulator.
    bool step(const std::string& block, void (*work)(HwInfo&), const std::function<bool()>& look) {
        card_.write(CARD, block);
        HwInfo info(memory_.path(), card_.path());
        info.examine();
        const pid_t child = fork();
        if (child == 0) {
            raise(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) < 0 ? SIGKILL : SIGSTOP);
            work(info);
            _exit(testing::Test::HasFailure());
        }
        int status = 0;
        while (waitpid(child, &status, 0) == child && WIFSTOPPED(status))
            if (ptrace(look() ? PTRACE_SINGLESTEP : PTRACE_CONT, child, nullptr, nullptr) < 0)
                kill(child, SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
        return WIFEXITED(status);
    }

    // The block after a start on the state.
    std::string startOn(const std::string& state) {
        card_.write(CARD, state);
        HwInfo(memory_.path(), card_.path()).initialize();
        return card_.read(CARD, 348);
    }

    const LogCapture log_;
    Image memory_{REGISTER + 4};
    Image card_{CARD + 0x10000};
};

TEST_F(PowerCut, LeavesOldOrDamagedOrNewBlockAndGrowsLosslessly) {
    const auto set = [](HwInfo& info) { info.write("serial=K2-7 and more"); };
    const auto clear = [](HwInfo& info) { info.clear(); };
    const auto grow = [](HwInfo& info) { info.initialize(); };
    const std::string older = validBlock(3, 168, "K1-00042") + std::string(200, 'x');
    const std::string empty = validBlock(5, 348, "");
    const std::string grown = validBlock(5, 348, "K1-00042");
    const struct {
        std::string before;
        void (*work)(HwInfo&);
        std::string after, damaged;
    } cuts[] = {
        {validBlock(5, 348, "K1"), set, validBlock(5, 348, "K2-7 and more"), empty},
        {validBlock(4, 400, std::string(388, 'x')), clear, empty, empty},
        {older, clear, empty, empty},
        {older, grow, grown, grown},
    };
    for (const auto& [before, work, after, damaged] : cuts) {
        std::vector<std::string> states;
        const bool isStepped = step(before, work, [&] {
            if (states.empty() || std::memcmp(card_.at(CARD), states.back().data(), KEPT) != 0)
                states.push_back(card_.read(CARD, KEPT));
            return true;
        });
        if (!isStepped)
            GTEST_SKIP() << "a child cannot be stepped here";
        EXPECT_GE(states.size(), 10U);
        EXPECT_EQ(states.back().substr(0, 348), after);
        const std::string old = startOn(states.front());
        for (const std::string& state : states)
            EXPECT_THAT(startOn(state), AnyOf(old, after, damaged));
    }
}

TEST_F(PowerCut, RegisterThatIgnoresAWriteFailsTheSetCommand) {
    const auto work = [](HwInfo& info) {
        EXPECT_EQ(textThrownBy([&] { setValues(info, std::vector<std::string>{"update_requested=1"}); }),
                  "The device does not store update_requested=1: update_requested is 0.");
    };
    int instructions = INT_MAX; // that are left after the write
    const auto ignore = [&] {
        if (memory_.read(REGISTER, 4) != word(0))
            instructions = 1000;
        memory_.write(REGISTER, word(0));
        return --instructions > 0;
    };
    if (!step(validBlock(5, 348, ""), work, ignore))
        GTEST_SKIP() << "a child cannot be stepped here";
}

} // namespace
