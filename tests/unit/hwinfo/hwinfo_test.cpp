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

namespace {

constexpr std::size_t REGISTER = 0x20CC068;
constexpr std::size_t CARD = 0x100000;
constexpr const char* GROWN = "Error Differents length, setting new values to default.";
constexpr const char* CLEARED = "Error Wrong checksum, setting defaults.";

class HwInfoTest : public testing::Test {
protected:
    HwInfoTest() { memory_.write(REGISTER - 4, "next" + word(0x5A5A5A57) + "next"); }
    ~HwInfoTest() override {
        EXPECT_EQ(memory_.read(REGISTER - 4, 12), "next" + bits() + "next");
        EXPECT_EQ(card_.read(CARD + 0x10000, 4), word(0));
    }

    void start(const std::string& block) {
        card_.write(CARD, block);
        info_.initialize();
    }
    std::string block(std::size_t length = 348) const { return card_.read(CARD, length); }
    std::string bits() const { return memory_.read(REGISTER, 4); }

    // 'y' for success. Otherwise, with nothing changed, 'n', 'p' for a private parameter, or 'l' for a length
    // beyond the region.
    char outcome(const std::function<bool()>& write) const {
        const std::string before = block() + bits();
        bool isDone = false;
        const std::string error = textThrownBy([&] { isDone = write(); });
        EXPECT_TRUE(isDone || block() + bits() == before);
        if (error == "nothing thrown")
            return isDone ? 'y' : 'n';
        return error.ends_with(" is private.") ? 'p' : error.ends_with(" bytes of the block.") ? 'l' : '?';
    }
    char outcome(const std::string& assignment) {
        return outcome([&] { return info_.write(assignment); });
    }

    // Runs `work` on the block in a child and calls `look` after each of its instructions, until that returns
    // false. Returns false where a child cannot be stepped, as in an emulator.
    bool step(const std::string& block, void (*work)(HwInfo&), const std::function<bool()>& look) {
        card_.write(CARD, block);
        info_.examine();
        const pid_t child = fork();
        if (child == 0) {
            raise(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) < 0 ? SIGKILL : SIGSTOP);
            work(info_);
            _exit(HasFailure());
        }
        int status = 0;
        while (waitpid(child, &status, 0) == child && WIFSTOPPED(status))
            if (ptrace(look() ? PTRACE_SINGLESTEP : PTRACE_CONT, child, nullptr, nullptr) < 0)
                kill(child, SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
        return WIFEXITED(status);
    }

    LogCapture log_;
    Image memory_{REGISTER + 8};
    Image card_{CARD + 0x10010};
    HwInfo info_{memory_.path(), card_.path()};
};

TEST_F(HwInfoTest, ValidBlockIsKeptOlderOneGrowsDamagedOneIsCleared) {
    const std::string text(30, 'S');
    const std::string line(180, 'l');
    std::string data = text + std::string("B\0x", 3) + std::string(27, '\0') + text + text;
    for (unsigned int number = 0; number < 9; ++number)
        data += word(number);
    data += line;
    const std::string empty = validBlock(5, 348, "");
    std::string damaged = validBlock(4, 348, "K1-00042");
    damaged[20] ^= 1;
    const std::string longest = validBlock(6, 65536, data);
    const struct {
        std::string before, after;
        std::vector<std::string> log;
    } starts[] = {
        {validBlock(3, 168, "K1") + std::string(200, 'x'), validBlock(5, 348, "K1") + "xxx", {GROWN}},
        {damaged, empty, {CLEARED}},
        {std::string(348, '\xFF'), empty, {CLEARED}},
        {word(5) + word(0x10001) + word(0), empty, {CLEARED}},
        {longest, longest, {}},
    };
    for (const auto& [before, after, log] : starts) {
        const LogCapture lines;
        start(before);
        EXPECT_EQ(block(after.size()) + bits(), after + word(0x5A5A5A57));
        EXPECT_EQ(lines.messages(), log);
    }
    EXPECT_EQ(printedBy([&] { info_.printParameters(); }),
              "serial=" + text + "\nboard=B\nrevision=" + text + "\nk=" + text +
                  "\nknob_position_min=0\nknob_position_max=1\nslider_position_min=2\nslider_position_max=3"
                  "\nzoom_zero_pos_x=4\nzoom_zero_pos_y=5\nbemf_gain=6\ncal_comp=7\ncal_bemf=8"
                  "\nknob_linearization=" +
                  line + "\nupdate_requested=0\nboot_failed=1\nboot_failed_counter=7\n");
    EXPECT_TRUE(info_.write("cal_bemf", 1)); // the checksum covers the longest block, too
    EXPECT_EQ(block(65536), validBlock(6, 65536, data.replace(152, 4, word(1))));
}

TEST_F(HwInfoTest, EachFormTakesItsParametersAndUpdatesTheChecksum) {
    start(validBlock(5, 348, "Serial"));
    const std::pair<const char*, const char*> rows[] = {
        // Reading a number and a text; writing a number, an assignment and a text.
        {"boot_failed_counter", "yyyyn"},
        {"serial", "nynyy"},
        {"cal_bemf", "yyyyn"},
        {"version", "yyypp"},
        {"checksum", "yyypp"},
        {"update_requested", "yyynn"},
        {"none", "nnnnn"},
        {" serial", "nnnnn"},
        {"", "nnnnn"},
    };
    for (const auto& row : rows) {
        const char* const name = row.first;
        unsigned int number = 7;
        std::string text = "7";
        std::string seen{outcome([&] { return info_.read(name, number); })};
        seen += outcome([&] { return info_.read(name, text); });
        EXPECT_TRUE((seen[0] == 'y' || number == 7) && (seen[1] == 'y' || text == "7")) << name;
        card_.write(CARD + 8, word(0));
        seen += outcome([&] { return info_.write(name, 1); });
        seen += outcome(name + std::string("=2"));
        seen += outcome([&] { return info_.write(name, "3x", 1); });
        EXPECT_EQ(seen, row.second) << name;
        EXPECT_EQ(info_.refusal(name + std::string("=2")).empty(), seen[3] == 'y') << name;
        EXPECT_EQ(info_.examine() == HwInfo::Content::Valid, seen.find('y', 2) < 5) << name;
    }
    info_.updateChecksum();
    EXPECT_EQ(block(), validBlock(1, 348, std::string("3").append(151, '\0') + word(2)));
    EXPECT_EQ(bits(), word(0xDA5A5A52));
}

TEST_F(HwInfoTest, NumbersAreDecimalOrHexadecimalAndInvalidValuesChangeNothing) {
    start(validBlock(5, 348, "S"));
    unsigned int number = 0;
    for (const auto& [text, value] : {std::pair{"0042", 42U}, {"4294967295", ~0U}, {"0xfFfFfFfE", ~1U}})
        EXPECT_TRUE(info_.write(std::string("cal_bemf=") + text) && info_.read("cal_bemf", number) &&
                    number == value);
    for (const char* text : {"", "0x", "-1", "+1", " 1", "1 ", "1.5", "0x1g", "4294967296", "0x100000000"})
        EXPECT_EQ(outcome(std::string("cal_bemf=") + text), 'n') << text;
    for (const char* refused :
         {"serial", "cal_bemf=x", "boot_failed_counter=16", "serial=0123456789012345678901234567890"}) {
        EXPECT_EQ(outcome(refused), 'n') << refused;
        EXPECT_NE(info_.refusal(refused), "") << refused;
    }
    EXPECT_EQ(outcome(std::string("serial\0=x", 9)), 'n');
    EXPECT_EQ(outcome(std::string("serial=x\0y", 10)), 'n');
    EXPECT_EQ(outcome("length=348"), 'p');
    EXPECT_EQ(outcome([&] { return info_.write("length", 65537); }), 'n');
    card_.write(CARD + 4, word(0xFFFFFFFF)); // by another process
    EXPECT_EQ(outcome([&] { return info_.write("cal_bemf", 1); }), 'l');
    EXPECT_EQ(outcome("serial=T"), 'l');
    EXPECT_EQ(outcome([&] { return info_.write("serial", "T", 1); }), 'l');
}

// A power cut leaves what the processor has stored so far, so the next start has to cope with every state.
TEST_F(HwInfoTest, PowerCutLeavesOldOrDamagedOrNewBlockAndGrowsLosslessly) {
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
            if (states.empty() || std::memcmp(card_.at(CARD), states.back().data(), 512) != 0)
                states.push_back(block(512));
            return true;
        });
        if (!isStepped)
            GTEST_SKIP() << "a child cannot be stepped here";
        EXPECT_GE(states.size(), 10U);
        EXPECT_EQ(block(), after);
        start(states.front());
        const std::string old = block();
        for (const std::string& state : states) {
            start(state);
            EXPECT_THAT(block(), testing::AnyOf(old, after, damaged));
        }
    }
}

TEST_F(HwInfoTest, RegisterThatIgnoresAWriteFailsTheSetCommand) {
    const auto work = [](HwInfo& info) {
        EXPECT_EQ(textThrownBy([&] { setValues(info, std::vector<std::string>{"update_requested=1"}); }),
                  "The device does not store update_requested=1: update_requested is 0.");
    };
    int instructions = INT_MAX; // that are left after the write
    const auto ignore = [&] {
        if (bits() != word(0x5A5A5A57))
            instructions = 1000;
        memory_.write(REGISTER, word(0x5A5A5A57));
        return --instructions > 0;
    };
    if (!step(validBlock(5, 348, ""), work, ignore))
        GTEST_SKIP() << "a child cannot be stepped here";
}

} // namespace
