#include "apps/libs/lhwinfo/hwinfo.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/hwinfo/image.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr off_t REGISTER = 0x20CC068;
constexpr off_t CARD = 0x100000;
constexpr const char* GROWN = "Error Differents length, setting new values to default.";
constexpr const char* CLEARED = "Error Wrong checksum, setting defaults.";

class HwInfoTest : public testing::Test {
protected:
    HwInfoTest() {
        memory_.write(REGISTER - 4, "next" + word(0x5A5A5A57) + "next");
        card_.write(CARD + 0x10000, "next");
    }
    ~HwInfoTest() override {
        EXPECT_EQ(memory_.read(REGISTER - 4, 12), "next" + bits() + "next");
        EXPECT_EQ(card_.read(CARD + 0x10000, 4), "next");
    }

    void start(const std::string& block) {
        card_.write(CARD, block);
        info_.initialize();
    }
    std::string block(std::size_t length = 348) const { return card_.read(CARD, length); }
    std::string bits() const { return memory_.read(REGISTER, 4); }

    // 'y' for what was done; otherwise, and then nothing has changed, 'n', or 'p' for a private parameter,
    // or 'l' for a length beyond the region.
    char outcome(const std::function<bool()>& write) const {
        const std::string before = block() + bits();
        bool isDone = false;
        const std::string error = textThrownBy([&] { isDone = write(); });
        EXPECT_TRUE(isDone || block() + bits() == before);
        if (error == "nothing thrown")
            return isDone ? 'y' : 'n';
        return error.ends_with(" is private.") ? 'p' : error.ends_with(" bytes of the block.") ? 'l' : '?';
    }

    LogCapture log_;
    Image memory_{REGISTER + 8};
    Image card_{CARD + 0x10010};
    HwInfo info_{memory_.path(), card_.path()};
};

TEST_F(HwInfoTest, ValidBlockIsReadAsTheLayoutHasItAndNothingIsWritten) {
    std::istringstream names("serial board revision k knob_position_min knob_position_max "
                             "slider_position_min slider_position_max zoom_zero_pos_x zoom_zero_pos_y "
                             "bemf_gain cal_comp cal_bemf knob_linearization "
                             "update_requested boot_failed boot_failed_counter");
    const std::string full(30, 'S');
    const std::string line(180, 'l');
    std::string data = full + std::string("B\0x", 3) + std::string(27, '\0') + full + full;
    for (unsigned int number = 0; number < 9; ++number)
        data += word(4000000000 + number);
    const std::string before = validBlock(4, 348, data + line);
    start(before);
    std::string values;
    for (std::string name, value; names >> name; values += value + " ")
        EXPECT_TRUE(info_.read(name.c_str(), value)) << name;
    EXPECT_EQ(values, full + " B " + full + " " + full +
                          " 4000000000 4000000001 4000000002 4000000003 4000000004 4000000005 4000000006 "
                          "4000000007 4000000008 " +
                          line + " 0 1 7 ");
    EXPECT_EQ(block() + bits(), before + word(0x5A5A5A57));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(HwInfoTest, OlderBlockKeepsItsValuesAndTheNewOnesAreEmpty) {
    card_.write(CARD + 168, std::string(200, 'x'));
    start(validBlock(3, 168, "K1-00042"));
    EXPECT_EQ(block(360), validBlock(5, 348, "K1-00042") + std::string(12, 'x'));
    EXPECT_THAT(log_.messages(), ElementsAre(GROWN));
}

TEST_F(HwInfoTest, DamagedAndErasedBlocksAndLengthsBeyondTheRegionAreCleared) {
    std::string damaged = validBlock(4, 348, "K1-00042");
    damaged[20] ^= 1;
    for (const std::string& bad : {damaged, std::string(348, '\xFF'), word(5) + word(0x10001) + word(0)}) {
        card_.write(CARD, bad);
        EXPECT_EQ(info_.examine(), HwInfo::Content::Invalid);
        info_.initialize();
        EXPECT_EQ(block() + bits(), validBlock(5, 348, "") + word(0x5A5A5A57));
        EXPECT_EQ(info_.examine(), HwInfo::Content::Valid);
    }
    EXPECT_THAT(log_.messages(), ElementsAre(CLEARED, CLEARED, CLEARED));
}

TEST_F(HwInfoTest, LongerBlockOfANewerLayoutIsKeptAndItsChecksumCoversIt) {
    std::string data(65536 - 12, 'n');
    start(validBlock(6, 65536, data));
    EXPECT_TRUE(info_.write("serial=" + std::string(30, 'n')));
    EXPECT_TRUE(info_.write("cal_bemf", 1));
    data.replace(152, 4, word(1));
    EXPECT_EQ(block(65536), validBlock(6, 65536, data));
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(HwInfoTest, RegisterFieldChangesAloneAndTheChecksumIsBroughtUpToDate) {
    start(validBlock(5, 348, "S"));
    card_.write(CARD + 8, word(0));
    EXPECT_TRUE(info_.write("boot_failed_counter", 3));
    EXPECT_EQ(block() + bits(), validBlock(5, 348, "S") + word(0x5A5A5A53));
    EXPECT_TRUE(info_.write("update_requested=1"));
    EXPECT_EQ(bits(), word(0xDA5A5A53));
}

TEST_F(HwInfoTest, EachFormOfReadingAndWritingTakesItsKindsOfParametersAndLeavesTheRest) {
    start(validBlock(5, 348, "Serial"));
    const std::pair<const char*, const char*> rows[] = {
        // Of reading a number and a text, and of writing a number, an assignment and a text.
        {"serial", "nynyy"},  {"cal_bemf", "yyyyn"}, {"boot_failed_counter", "yyyyn"},
        {"version", "yyypp"}, {"none", "nnnnn"},     {" serial", "nnnnn"},
        {"", "nnnnn"},
    };
    for (const auto& [name, outcomes] : rows) {
        unsigned int number = 7;
        std::string text = "7";
        std::string seen{outcome([&] { return info_.read(name, number); })};
        seen += outcome([&] { return info_.read(name, text); });
        EXPECT_TRUE((seen[0] == 'y' || number == 7) && (seen[1] == 'y' || text == "7")) << name;
        seen += outcome([&] { return info_.write(name, 1); });
        seen += outcome([&] { return info_.write(name + std::string("=2")); });
        seen += outcome([&] { return info_.write(name, "3x", 1); });
        EXPECT_EQ(seen, outcomes) << name;
        EXPECT_EQ(info_.refusal(name + std::string("=2")).empty(), seen[3] == 'y') << name;
    }
    EXPECT_EQ(block(), validBlock(1, 348, std::string("3").append(151, '\0') + word(2)));
}

TEST_F(HwInfoTest, ValuesThatDoNotFitAreRefusedAndChangeNothing) {
    start(validBlock(5, 348, "S"));
    for (const char* refused : {"serial", "cal_bemf=1.5", "cal_bemf=", "boot_failed_counter=16",
                                "serial=0123456789012345678901234567890"}) {
        EXPECT_EQ(outcome([&] { return info_.write(refused); }), 'n') << refused;
        EXPECT_NE(info_.refusal(refused), "") << refused;
    }
    EXPECT_EQ(outcome([&] { return info_.write(std::string("serial\0=x", 9)); }), 'n');
    EXPECT_EQ(outcome([&] { return info_.write(std::string("serial=x\0y", 10)); }), 'n');
    EXPECT_EQ(outcome([&] { return info_.write("length", 65537); }), 'n');
}

TEST_F(HwInfoTest, LengthThatAnotherProcessHasDamagedStopsWritesBeforeTheyStore) {
    start(validBlock(5, 348, "S"));
    card_.write(CARD + 4, word(0xFFFFFFFF));
    EXPECT_EQ(outcome([&] { return info_.write("cal_bemf", 1); }), 'l');
    EXPECT_EQ(outcome([&] { return info_.write("serial=T"); }), 'l');
    EXPECT_EQ(outcome([&] { return info_.write("serial", "T", 1); }), 'l');
}

} // namespace
