#include "apps/libs/lhwinfo/hwinfo.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/hwinfo/image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

constexpr off_t REGISTER = 0x20CC068;
constexpr off_t CARD = 0x100000;
constexpr const char* GROWN = "Error Differents length, setting new values to default.";
constexpr const char* CLEARED = "Error Wrong checksum, setting defaults.";

class HwInfoTest : public testing::Test {
protected:
    HwInfoTest() {
        memory_.write(REGISTER, word(0x5A5A5A57));
        card_.write(CARD + 0x10000, "behind");
    }
    ~HwInfoTest() override { EXPECT_EQ(card_.read(CARD + 0x10000, 6), "behind"); }

    void start(const std::string& block) {
        card_.write(CARD, block);
        info_.initialize();
    }
    std::string block(std::size_t length = 348) const { return card_.read(CARD, length); }
    std::string text(const char* name) const {
        std::string value = "unknown";
        info_.read(name, value);
        return value;
    }

    LogCapture log_;
    Image memory_{REGISTER + 4};
    Image card_{CARD + 0x10010};
    HwInfo info_{memory_.path(), card_.path()};
};

TEST_F(HwInfoTest, ValidBlockIsReadAndNothingIsWritten) {
    std::string data(336, '\0');
    data.replace(0, 30, std::string(30, 'S'));
    data.replace(30, 4, "B\0x", 4);
    data.replace(120, 4, word(4000000000));
    data.replace(156, 180, std::string(180, 'l'));
    const std::string before = validBlock(4, 348, data);
    start(before);
    EXPECT_EQ(text("serial"), std::string(30, 'S'));
    EXPECT_EQ(text("board"), "B");
    EXPECT_EQ(text("knob_position_min"), "4000000000");
    EXPECT_EQ(text("knob_linearization"), std::string(180, 'l'));
    EXPECT_EQ(text("update_requested") + " " + text("boot_failed_counter"), "0 7");
    EXPECT_EQ(block(), before);
    EXPECT_THAT(log_.messages(), IsEmpty());
}

TEST_F(HwInfoTest, ParametersLieWhereTheLayoutHasThem) {
    start(std::string(348, '\0'));
    const char* const texts[] = {"serial", "board", "revision", "k"};
    const char* const numbers[] = {"knob_position_min",   "knob_position_max", "slider_position_min",
                                   "slider_position_max", "zoom_zero_pos_x",   "zoom_zero_pos_y",
                                   "bemf_gain",           "cal_comp",          "cal_bemf"};
    std::string data;
    for (const char* name : texts) {
        EXPECT_TRUE(info_.write(name, name, 30));
        data += name;
        data.resize((data.size() + 29) / 30 * 30);
    }
    for (const char* name : numbers) {
        EXPECT_TRUE(info_.write(name, static_cast<unsigned int>(data.size())));
        data += word(static_cast<std::uint32_t>(data.size()));
    }
    EXPECT_TRUE(info_.write("knob_linearization=1=2"));
    EXPECT_EQ(block(), validBlock(5, 348, data + "1=2"));
}

TEST_F(HwInfoTest, OlderBlockKeepsItsValuesAndTheNewOnesAreEmpty) {
    card_.write(CARD + 168, std::string(200, 'x'));
    start(validBlock(3, 168, "K1-00042"));
    EXPECT_EQ(block(360), validBlock(5, 348, "K1-00042") + std::string(12, 'x'));
    EXPECT_THAT(log_.messages(), ElementsAre(GROWN));
}

TEST_F(HwInfoTest, DamagedBlockIsClearedAndTheRegisterStays) {
    std::string damaged = validBlock(4, 348, "K1-00042");
    damaged[20] ^= 1;
    EXPECT_EQ(info_.examine(), HwInfo::Content::Invalid);
    start(damaged);
    EXPECT_EQ(block(), validBlock(5, 348, ""));
    EXPECT_EQ(memory_.read(REGISTER, 4), word(0x5A5A5A57));
    EXPECT_THAT(log_.messages(), ElementsAre(CLEARED));
    EXPECT_EQ(info_.examine(), HwInfo::Content::Valid);
}

TEST_F(HwInfoTest, ErasedCardAndLengthBeyondTheRegionCountAsDamaged) {
    start(std::string(348, '\xFF'));
    EXPECT_EQ(block(), validBlock(5, 348, ""));
    start(word(5) + word(0x10001) + word(0) + std::string(336, 'x'));
    EXPECT_EQ(block(), validBlock(5, 348, ""));
    EXPECT_THAT(log_.messages(), ElementsAre(CLEARED, CLEARED));
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
    EXPECT_EQ(memory_.read(REGISTER, 4), word(0x5A5A5A53));
    EXPECT_EQ(block(), validBlock(5, 348, "S"));
    EXPECT_TRUE(info_.write("update_requested=1"));
    EXPECT_EQ(memory_.read(REGISTER, 4), word(0xDA5A5A53));
}

TEST_F(HwInfoTest, WhatCannotBeWrittenIsRefusedAndChangesNothing) {
    start(validBlock(5, 348, "S"));
    for (const std::string refused : {"serial", "none=1", " serial=x", "cal_bemf=1.5", "cal_bemf=",
                                      "boot_failed_counter=16", "serial=0123456789012345678901234567890"}) {
        EXPECT_FALSE(info_.write(refused)) << refused;
        EXPECT_NE(info_.refusal(refused), "") << refused;
    }
    EXPECT_FALSE(info_.write(std::string("serial\0=x", 9)) || info_.write(std::string("serial=x\0y", 10)));
    EXPECT_FALSE(info_.write("none", 1) || info_.write("serial", 1) || info_.write("boot_failed", 2));
    EXPECT_FALSE(info_.write("length", 65537));
    EXPECT_FALSE(info_.write("cal_bemf", "1", 1) || info_.write("none", "1", 1));
    EXPECT_FALSE(info_.write("serial", nullptr, 1) || info_.write("update_requested", "1", 1));
    EXPECT_THAT(textThrownBy([&] { info_.write("version", "7", 1); }), EndsWith(" version is private."));
    EXPECT_THAT(textThrownBy([&] { info_.write("length=400"); }), EndsWith(" length is private."));
    EXPECT_EQ(info_.refusal("checksum=1"), "checksum is private");
    EXPECT_EQ(block(), validBlock(5, 348, "S"));
    EXPECT_EQ(memory_.read(REGISTER, 4), word(0x5A5A5A57));
}

TEST_F(HwInfoTest, LengthThatAnotherProcessHasDamagedStopsWritesBeforeTheyStore) {
    start(validBlock(5, 348, "S"));
    card_.write(CARD + 4, word(0xFFFFFFFF));
    const std::string before = block();
    const char* const text = " Length 4294967295 is beyond the 65536 bytes of the block.";
    EXPECT_THAT(textThrownBy([&] { info_.write("cal_bemf", 1); }), EndsWith(text));
    EXPECT_THAT(textThrownBy([&] { info_.write("serial=T"); }), EndsWith(text));
    EXPECT_THAT(textThrownBy([&] { info_.write("serial", "T", 1); }), EndsWith(text));
    EXPECT_EQ(block(), before);
}

} // namespace
