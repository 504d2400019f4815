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

class PowerCut : public testing::Test {
protected:
    using Work = std::function<void(HwInfo&)>;

    ~PowerCut() override { munmap(block_, KEPT); }

    // All states from the first to the last store. Empty where a child cannot be stepped.
    std::vector<std::string> statesOf(const std::string& block, const Work& work) {
        card_.write(CARD, block);
        HwInfo info(memory_.path(), card_.path());
        info.examine();
        const pid_t child = fork();
        if (child != 0)
            return follow(child);
        raise(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) < 0 ? SIGKILL : SIGSTOP);
        work(info);
        _exit(0);
    }

    std::vector<std::string> follow(pid_t child) {
        std::vector<std::string> states{std::string(block_, KEPT)};
        int status = 0;
        while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
            if (std::memcmp(block_, states.back().data(), KEPT) != 0)
                states.emplace_back(block_, KEPT);
            if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) < 0)
                kill(child, SIGKILL);
        }
        if (WIFSIGNALED(status))
            return {};
        EXPECT_EQ(WEXITSTATUS(status), 0);
        return states;
    }

    // What the next start makes of a state: "damaged" or its values.
    std::string startOn(const std::string& state) {
        card_.write(CARD, state);
        const LogCapture log;
        HwInfo info(memory_.path(), card_.path());
        info.initialize();
        std::ostringstream values;
        info.printParameters(values);
        return log.text().find("Wrong checksum") == std::string::npos ? values.str() : "damaged";
    }

    // The same for all states; those that follow each other and give the same count once.
    std::string startsOn(const std::vector<std::string>& states) {
        const std::string last = startOn(states.back());
        const std::string first = startOn(states.front());
        std::string starts;
        for (const std::string& state : states) {
            const std::string start = startOn(state);
            const std::string name = start == last ? "new " : start == first ? "old " : start + " ";
            if (!starts.ends_with(name))
                starts += name;
        }
        return starts;
    }

    Image memory_{0x20CC06C};
    Image card_{CARD + 0x10000};
    char* block_ = static_cast<char*>(mmap(nullptr, KEPT, PROT_READ, MAP_SHARED, card_.fd(), CARD));
};

TEST_F(PowerCut, LeavesTheOldBlockOrADamagedOneOrTheNewOneAndGrowingNeverLosesAValue) {
    const std::string old = validBlock(5, 348, "K1-00042");
    const std::string unsealed = word(5) + word(348) + word(0) + old.substr(12);
    const std::string full = validBlock(4, 348, std::string(336, 'x'));
    const std::string longer = validBlock(4, 400, std::string(388, 'x'));
    const std::string older = validBlock(3, 168, "K1-00042") + std::string(200, 'x');
    const Work set = [](HwInfo& info) { info.write("serial=K2-7 and more"); };
    const Work seal = [](HwInfo& info) { info.updateChecksum(); };
    const Work clear = [](HwInfo& info) { info.clear(); };
    const Work grow = [](HwInfo& info) { info.initialize(); };
    const struct {
        std::string before;
        Work work;
        const char* after;
        std::size_t leastStates, mostStates;
        const char* starts;
    } cuts[] = {
        {old, set, "K2-7 and more", 10, KEPT, "old damaged new "},
        {unsealed, seal, "K1-00042", 2, 2, "old new "},
        {full, clear, "", 300, KEPT, "old damaged new "},
        {longer, clear, "", 300, KEPT, "old damaged new "},
        {older, clear, "", 180, KEPT, "old damaged new "},
        {older, grow, "K1-00042", 180, KEPT, "new "},
    };
    for (const auto& cut : cuts) {
        const std::vector<std::string> states = statesOf(cut.before, cut.work);
        if (states.empty())
            GTEST_SKIP() << "no child can be stepped one instruction at a time here, as in an emulator";
        EXPECT_GE(states.size(), cut.leastStates);
        EXPECT_LE(states.size(), cut.mostStates);
        EXPECT_EQ(states.back().substr(0, 348), validBlock(5, 348, cut.after));
        EXPECT_EQ(startsOn(states), cut.starts);
    }
}

} // namespace
