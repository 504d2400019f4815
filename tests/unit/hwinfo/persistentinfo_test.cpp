#include "apps/libs/lhwinfo/persistentinfo.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/hwinfo/image.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace {

using Info = PersistentInfo;
using testing::EndsWith;

class PersistentInfoTest : public testing::Test {
protected:
    LogCapture log_;
    Image image_{64};
};

TEST_F(PersistentInfoTest, OpenAndMapFailuresThrowAndLeaveNothingOpen) {
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

TEST_F(PersistentInfoTest, ParametersFollowEachOtherAndKeepTheirNeighbours) {
    image_.write(0, std::string(4, '\xFF') + std::string(9, '\0') + "!");
    Info info(image_.path(), 0, 13);
    info.addInfo(std::make_unique<Info::Bits>("top", 1, Parameter::PRIVATE));
    info.addInfo(std::make_unique<Info::Bits>("wide", 31, Parameter::FILLER));
    info.addInfo(std::make_unique<Info::Bits>("odd", 9));
    info.addInfo(std::make_unique<Info::String>("text", 3)); // begins in the last byte of the bits
    info.addInfo(std::make_unique<Info::Int>("number"));     // begins with the next byte
    EXPECT_EQ(info.size(), 13u);
    EXPECT_TRUE(info.set("wide", "33554433") && info.set("odd", "511") && info.set("odd", "256"));
    EXPECT_TRUE(info.set("text", "\x1b") && info.set("number", "0x44434241"));
    EXPECT_EQ(image_.read(0, 14), word(0x82000001) + std::string("\0\x1b\0\0\0\x41\x42\x43\x44!", 10));
    EXPECT_EQ(printedBy([&] { info.printParameters(); }), "odd=0\ntext=\\x1b\nnumber=1145258561\n");
    EXPECT_EQ(printedBy([&] { info.printAll(); }),
              "   byte.bit   bits  name                          value\n"
              "        0.0      1  top                   private 1\n"
              "        0.1     31  wide                  filler  33554433\n"
              "        4.0      9  odd                           0\n"
              "        5.1     24  text                          \\x1b\n"
              "        8.1     32  number                        1145258561\n");
    info.clearAll();
    EXPECT_EQ(image_.read(0, 14), std::string(13, '\0') + '!');
}

TEST_F(PersistentInfoTest, ParameterBeyondTheRegionOrItsWordIsRefused) {
    Info info(image_.path(), 0, 6);
    const auto refuses = [&](Info::Base* parameter) {
        return textThrownBy([&] { info.addInfo(std::unique_ptr<Info::Base>(parameter)); })
            .ends_with(" p does not fit.");
    };
    EXPECT_FALSE(refuses(new Info::Bits("p", 20)));
    EXPECT_TRUE(refuses(new Info::Int("p")) && refuses(new Info::String("p", 5)));
    EXPECT_TRUE(refuses(new Info::String("p", 0x20000001)));
    EXPECT_TRUE(refuses(new Info::Bits("p", 13)) && refuses(new Info::Bits("p", 0)));
    EXPECT_FALSE(refuses(new Info::Bits("p", 12)));
    EXPECT_TRUE(refuses(new Info::Bits("p", 1)));
    EXPECT_EQ(info.size(), 4u);
}

TEST_F(PersistentInfoTest, ChecksumAndClearingStayInTheRegion) {
    image_.write(12, "123456789!");
    Info info(image_.path(), 0, 21);
    EXPECT_EQ(info.checksum(12), 0xFFFFFFFF);
    EXPECT_EQ(info.checksum(21), 0x0376E6E7u);
    const auto error = EndsWith(" Length 22 is beyond the 21 bytes of the block.");
    EXPECT_THAT(textThrownBy([&] { info.checksum(22); }), error);
    EXPECT_THAT(textThrownBy([&] { info.setNewMemToDefault(0, 22); }), error);
    info.setNewMemToDefault(22, 22);
    info.setNewMemToDefault(13, 21);
    EXPECT_EQ(image_.read(12, 10), std::string("1\0\0\0\0\0\0\0\0!", 10));
}

} // namespace
