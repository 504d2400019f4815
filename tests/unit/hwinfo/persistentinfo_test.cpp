#include "apps/libs/lhwinfo/persistentinfo.h"

#include "apps/libs/lhwinfo/parameters.h"
#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/hwinfo/image.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using Info = PersistentInfo;
using testing::EndsWith;

template <typename Parameter, typename... Arguments>
void add(Info& info, Arguments... arguments) {
    info.addInfo(std::make_unique<Parameter>(arguments...));
}

void setNumber(Info& info, const char* name, unsigned int number) {
    EXPECT_TRUE(info.set(name, &number)) << name;
}

class PersistentInfoTest : public testing::Test {
protected:
    LogCapture log_;
    Image image_{64};
};

TEST_F(PersistentInfoTest, RegionNeedsNoPageBoundaryAndItsNeighboursStay) {
    const Image memory(0x20CC070);
    memory.write(0x20CC060, std::string(16, '\xEE'));
    Info info(memory.path(), 0x20CC068, 4);
    add<Info::Int>(info, "word");
    setNumber(info, "word", 0x44434241);
    info.flush();
    EXPECT_EQ(memory.read(0x20CC060, 16), std::string(8, '\xEE') + "ABCD" + std::string(4, '\xEE'));
}

TEST_F(PersistentInfoTest, DeviceThatCannotBeOpenedOrMappedIsAnErrorAndLeavesNothingOpen) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto opening = [](const char* device, unsigned int offset, unsigned int size) {
        return textThrownBy([&] { const Info info(device, offset, size); });
    };
    EXPECT_THAT(opening("/nowhere", 0, 4), EndsWith(" open: No such file or directory"));
    const auto before = descriptors();
    EXPECT_THAT(opening("/dev/null", 0, 4), EndsWith(" mmap: No such device"));
    EXPECT_THAT(opening(image_.path(), 0, 0), EndsWith(" mmap: Invalid argument"));
    EXPECT_THAT(opening(image_.path(), 61, 4), EndsWith(" mmap: No such device or address"));
    EXPECT_THAT(opening(image_.path(), 0xFFFFFFFF, 4), EndsWith(" mmap: No such device or address"));
    EXPECT_EQ(descriptors(), before);
}

TEST_F(PersistentInfoTest, BitsFillTheirWordFromTheTopAndLeaveEachOther) {
    image_.write(4, "\xFF\xFF\xFF\xFF");
    Info info(image_.path(), 0, 8);
    add<Info::Int>(info, "before");
    add<Info::Bits>(info, "top", 1u);
    add<Info::Bits>(info, "wide", 26u, Info::FILLER);
    add<Info::Bits>(info, "one", 1u);
    add<Info::Bits>(info, "low", 4u);
    setNumber(info, "wide", 0x2000001);
    setNumber(info, "low", 9);
    EXPECT_EQ(image_.read(4, 4), word(0x80000000 | 0x2000001 << 5 | 1 << 4 | 9));
    setNumber(info, "top", 0);
    setNumber(info, "one", 0);
    EXPECT_EQ(image_.read(4, 4), word(0x2000001 << 5 | 9));
    const unsigned int large = 16;
    EXPECT_FALSE(info.set("low", &large));
    EXPECT_EQ(image_.read(4, 4), word(0x2000001 << 5 | 9));
    unsigned int wide = 0;
    EXPECT_TRUE(info.get("wide", wide));
    EXPECT_EQ(wide, 0x2000001u);
}

TEST_F(PersistentInfoTest, BehindBitsANumberBeginsWithTheNextByteAndATextInTheSameOne) {
    Info number(image_.path(), 0, 8);
    add<Info::Bits>(number, "bits", 9u);
    add<Info::Int>(number, "number");
    setNumber(number, "number", 0x44434241);
    EXPECT_EQ(number.size(), 6u);
    EXPECT_EQ(image_.read(0, 8), std::string("\0\0ABCD\0\0", 8));
    Info text(image_.path(), 32, 8);
    add<Info::Bits>(text, "bits", 9u);
    add<Info::String>(text, "text", 2u);
    EXPECT_TRUE(text.set("text", "xy"));
    EXPECT_EQ(text.size(), 4u);
    EXPECT_EQ(image_.read(32, 8), std::string("\0xy\0\0\0\0\0", 8));
}

TEST_F(PersistentInfoTest, ParameterThatReachesOutOfTheRegionOrOfItsWordIsRefused) {
    Info info(image_.path(), 0, 6);
    const auto adding = [&](auto parameter) {
        return textThrownBy([&] { info.addInfo(std::move(parameter)); });
    };
    add<Info::Bits>(info, "bits", 20u);
    EXPECT_THAT(adding(std::make_unique<Info::Int>("number")), EndsWith(" number does not fit."));
    EXPECT_THAT(adding(std::make_unique<Info::String>("text", 5)), EndsWith(" text does not fit."));
    EXPECT_THAT(adding(std::make_unique<Info::String>("huge", 0x20000001)), EndsWith(" huge does not fit."));
    EXPECT_THAT(adding(std::make_unique<Info::Bits>("crossing", 13)), EndsWith(" crossing does not fit."));
    EXPECT_THAT(adding(std::make_unique<Info::Bits>("none", 0)), EndsWith(" none does not fit."));
    add<Info::Bits>(info, "rest", 12u);
    EXPECT_THAT(adding(std::make_unique<Info::Bits>("beyond", 1)), EndsWith(" beyond does not fit."));
    EXPECT_EQ(info.size(), 4u);
}

TEST_F(PersistentInfoTest, NumberFromTextIsDecimalOrHexadecimalAndAnythingElseChangesNothing) {
    Info info(image_.path(), 0, 4);
    add<Info::Int>(info, "number");
    const auto stored = [&](const char* text) { return info.set("number", text) ? image_.read(0, 4) : "-"; };
    EXPECT_EQ(stored("0042"), word(42));
    EXPECT_EQ(stored("0xfFfFfFfE"), word(0xFFFFFFFE));
    EXPECT_EQ(stored("4294967295"), word(0xFFFFFFFF));
    for (const char* text : {"", "0x", "-1", "+1", " 1", "1 ", "12x", "0x1g", "4294967296", "0x100000000"}) {
        EXPECT_EQ(stored(text), "-") << text;
    }
    EXPECT_EQ(image_.read(0, 4), word(0xFFFFFFFF));
    EXPECT_FALSE(info.set("other", "1"));
    EXPECT_FALSE(info.set(nullptr, "1"));
    EXPECT_FALSE(info.set("number", static_cast<const unsigned int*>(nullptr)));
}

TEST_F(PersistentInfoTest, TextMayFillItsFieldAndEndsAtItsFirstZeroByte) {
    image_.write(0, "......!");
    Info info(image_.path(), 0, 7);
    add<Info::String>(info, "text", 6u);
    std::string text;
    EXPECT_TRUE(info.set("text", "sixsix"));
    EXPECT_TRUE(info.get("text", text));
    EXPECT_EQ(text, "sixsix");
    EXPECT_FALSE(info.set("text", "sevenup"));
    EXPECT_FALSE(info.set("text", std::string("a\0b", 3)));
    EXPECT_EQ(image_.read(0, 7), "sixsix!");
    EXPECT_TRUE(info.set("text", "two"));
    EXPECT_EQ(image_.read(0, 7), std::string("two\0\0\0!", 7));
    image_.write(4, "x");
    EXPECT_TRUE(info.get("text", text));
    EXPECT_EQ(text, "two");
    unsigned int number = 7;
    EXPECT_FALSE(info.get("text", number) || info.get("other", text) || info.get("other", number));
    EXPECT_FALSE(info.set("text", &number));
    EXPECT_EQ(number, 7u);
}

TEST_F(PersistentInfoTest, ChecksumBeginsBehindTheHeaderAndNeverLeavesTheRegion) {
    image_.write(12, "123456789");
    const Info info(image_.path(), 0, 21);
    EXPECT_EQ(info.checksum(0), 0xFFFFFFFF);
    EXPECT_EQ(info.checksum(12), 0xFFFFFFFF);
    EXPECT_EQ(info.checksum(13), checksumOf("1"));
    EXPECT_EQ(info.checksum(21), 0x0376E6E7u);
    EXPECT_THAT(textThrownBy([&] { info.checksum(22); }),
                EndsWith(" Length 22 is beyond the 21 bytes of the block."));
}

TEST_F(PersistentInfoTest, ClearingTouchesWhatItNamesOnly) {
    image_.write(0, "ABCDEFGHIJ");
    Info info(image_.path(), 0, 9);
    add<Info::Int>(info, "number", Info::PRIVATE);
    add<Info::String>(info, "text", 4u);
    info.setNewMemToDefault(5, 5);
    info.setNewMemToDefault(5, 7);
    EXPECT_EQ(image_.read(0, 10), std::string("ABCDE\0\0HIJ", 10));
    EXPECT_THAT(textThrownBy([&] { info.setNewMemToDefault(0, 10); }),
                EndsWith(" Length 10 is beyond the 9 bytes of the block."));
    EXPECT_EQ(image_.read(0, 10), std::string("ABCDE\0\0HIJ", 10));
    info.clearAll();
    EXPECT_EQ(image_.read(0, 10), std::string(8, '\0') + "IJ");
}

TEST_F(PersistentInfoTest, ListingsShowWhatMayBeSetOrAllThereIs) {
    Info info(image_.path(), 0, 12);
    add<Info::Int>(info, "version", Info::PRIVATE);
    add<Info::String>(info, "serial", 4u);
    add<Info::Bits>(info, "unused", 20u, Info::FILLER);
    add<Info::Bits>(info, "counter", 12u);
    setNumber(info, "version", 5);
    setNumber(info, "counter", 4095);
    EXPECT_TRUE(info.set("serial", "K\x1b\xC3\xA4"));
    std::ostringstream values;
    info.printParameters(values);
    EXPECT_EQ(values.str(), "serial=K\\x1b\xC3\xA4\ncounter=4095\n");
    std::ostringstream all;
    info.printAll(all);
    EXPECT_EQ(all.str(), "   byte.bit   bits  name                          value\n"
                         "        0.0     32  version               private 5\n"
                         "        4.0     32  serial                        K\\x1b\xC3\xA4\n"
                         "        8.0     20  unused                filler  0\n"
                         "       10.4     12  counter                       4095\n");
}

} // namespace
