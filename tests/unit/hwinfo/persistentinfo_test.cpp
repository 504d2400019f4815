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
using testing::StartsWith;

template <typename Parameter, typename... Arguments>
void add(Info& info, Arguments... arguments) {
    info.addInfo(std::make_unique<Parameter>(arguments...));
}

class PersistentInfoTest : public testing::Test {
protected:
    LogCapture log_;
    Image image_{64};
};

TEST_F(PersistentInfoTest, DeviceThatCannotBeOpenedOrMappedIsAnErrorAndLeavesNothingOpen) {
    const auto opening = [](const char* device, unsigned int offset, unsigned int size) {
        return textThrownBy([&] { const Info info(device, offset, size); });
    };
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    EXPECT_THAT(opening("/nowhere", 0, 4), EndsWith(" open: No such file or directory"));
    const auto before = descriptors(); // the log is open now
    EXPECT_THAT(opening("/dev/null", 0, 4), EndsWith(" mmap: No such device"));
    EXPECT_THAT(opening(image_.path(), 0, 0), EndsWith(" mmap: Invalid argument"));
    EXPECT_THAT(opening(image_.path(), 61, 4), EndsWith(" mmap: No such device or address"));
    EXPECT_THAT(opening(image_.path(), 0xFFFFFFFF, 4), EndsWith(" mmap: No such device or address"));
    EXPECT_EQ(descriptors(), before);
}

TEST_F(PersistentInfoTest, ParametersLieOneBehindTheOtherAndLeaveEachOther) {
    image_.write(0, std::string(8, '\xFF'));
    image_.write(17, "!");
    Info info(image_.path(), 0, 17);
    add<Info::Int>(info, "version", Info::PRIVATE);
    add<Info::Bits>(info, "top", 1u);
    add<Info::Bits>(info, "wide", 26u, Info::FILLER);
    add<Info::Bits>(info, "one", 1u);
    add<Info::Bits>(info, "low", 4u);
    add<Info::Bits>(info, "odd", 9u);
    add<Info::String>(info, "text", 3u); // begins in the byte in which the bits end
    add<Info::Int>(info, "number");      // begins with the next byte
    EXPECT_EQ(info.size(), 17u);
    EXPECT_TRUE(info.set("version", "5") && info.set("wide", "33554433") && info.set("low", "9"));
    EXPECT_FALSE(info.set("low", "16"));
    EXPECT_TRUE(info.set("text", "\x1b") && info.set("number", "0x44434241"));
    EXPECT_EQ(image_.read(0, 8), word(5) + word(0x80000000 | 0x2000001 << 5 | 1 << 4 | 9));
    EXPECT_EQ(image_.read(8, 10), std::string("\0\x1b\0\0\0\x41\x42\x43\x44!", 10));
    EXPECT_TRUE(info.set("top", "0") && info.set("one", "0"));
    EXPECT_EQ(image_.read(4, 4), word(0x2000001 << 5 | 9));
    std::ostringstream out;
    info.printParameters(out);
    EXPECT_EQ(out.str(), "top=0\none=0\nlow=9\nodd=0\ntext=\\x1b\nnumber=1145258561\n");
    out.str("");
    info.printAll(out);
    EXPECT_THAT(out.str(), StartsWith("   byte.bit   bits  name                          value\n"
                                      "        0.0     32  version               private 5\n"
                                      "        4.0      1  top                           0\n"
                                      "        4.1     26  wide                  filler  33554433\n"));
    info.clearAll();
    EXPECT_EQ(image_.read(0, 18), std::string(17, '\0') + '!');
}

TEST_F(PersistentInfoTest, ParameterThatReachesOutOfTheRegionOrOfItsWordIsRefused) {
    Info info(image_.path(), 0, 6);
    const auto refuses = [&](std::unique_ptr<Info::Base> parameter) {
        return textThrownBy([&] { info.addInfo(std::move(parameter)); }).ends_with(" p does not fit.");
    };
    add<Info::Bits>(info, "bits", 20u);
    EXPECT_TRUE(refuses(std::make_unique<Info::Int>("p")));
    EXPECT_TRUE(refuses(std::make_unique<Info::String>("p", 5)));
    EXPECT_TRUE(refuses(std::make_unique<Info::String>("p", 0x20000001)));
    EXPECT_TRUE(refuses(std::make_unique<Info::Bits>("p", 13)));
    EXPECT_TRUE(refuses(std::make_unique<Info::Bits>("p", 0)));
    add<Info::Bits>(info, "rest", 12u);
    EXPECT_TRUE(refuses(std::make_unique<Info::Bits>("p", 1)));
    EXPECT_EQ(info.size(), 4u);
}

TEST_F(PersistentInfoTest, NumberFromTextIsDecimalOrHexadecimalAndAnythingElseChangesNothing) {
    Info info(image_.path(), 0, 4);
    add<Info::Int>(info, "number");
    const auto stored = [&](const char* text) { return info.set("number", text) ? image_.read(0, 4) : "-"; };
    EXPECT_EQ(stored("0042"), word(42));
    EXPECT_EQ(stored("4294967295"), word(0xFFFFFFFF));
    EXPECT_EQ(stored("0xfFfFfFfE"), word(0xFFFFFFFE));
    for (const char* text : {"", "0x", "-1", "+1", " 1", "1 ", "12x", "0x1g", "4294967296", "0x100000000"})
        EXPECT_EQ(stored(text), "-") << text;
    EXPECT_EQ(image_.read(0, 4), word(0xFFFFFFFE));
    EXPECT_FALSE(info.set(nullptr, "1") || info.set("number", static_cast<const unsigned int*>(nullptr)));
}

TEST_F(PersistentInfoTest, ChecksumAndClearingKeepToTheRegion) {
    image_.write(12, "123456789!");
    Info info(image_.path(), 0, 21);
    EXPECT_EQ(info.checksum(12), 0xFFFFFFFF);
    EXPECT_EQ(info.checksum(21), 0x0376E6E7u);
    const char* const error = " Length 22 is beyond the 21 bytes of the block.";
    EXPECT_THAT(textThrownBy([&] { info.checksum(22); }), EndsWith(error));
    EXPECT_THAT(textThrownBy([&] { info.setNewMemToDefault(0, 22); }), EndsWith(error));
    info.setNewMemToDefault(22, 22);
    info.setNewMemToDefault(13, 21);
    EXPECT_EQ(image_.read(12, 10), std::string("1\0\0\0\0\0\0\0\0!", 10));
}

} // namespace
