#include "apps/gui/common/fb-linux.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/gui/virtualscreen.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <sys/time.h>

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;

class FbLinuxTest : public testing::Test {
protected:
    static constexpr std::uint32_t WIDTH = 40;
    static constexpr std::uint32_t HEIGHT = 30;
    static constexpr std::size_t FRAME = 4 * WIDTH * HEIGHT;

    // Which buffer an address of `framebuffer`, whose buffers begin at `start`, belongs to.
    static std::ptrdiff_t number(const unsigned char* address, const unsigned char* start) {
        return (address - start) / static_cast<std::ptrdiff_t>(FRAME);
    }

    static std::string initFailure(const std::string& path, int buffers) {
        return textThrownBy([&] { FbLinux(path, buffers).init(); });
    }

    bool isFirstBufferClear() {
        return std::count(screen_.buffer(0), screen_.buffer(1), 0) == std::ptrdiff_t{FRAME};
    }

    LogCapture log_;
    VirtualScreen screen_{WIDTH, HEIGHT};
};

TEST_F(FbLinuxTest, DrawingBeginsWithAClearFirstBufferOnDisplay) {
    screen_.paint(0, 1);
    screen_.paint(1, 2);
    screen_.state().yoffset = HEIGHT;
    FbLinux drawing("/dev/fb0", 2);
    drawing.init();
    EXPECT_EQ(screen_.state().yoffset, 0U);
    EXPECT_EQ(screen_.state().yresVirtual, 2 * HEIGHT);
    EXPECT_TRUE(isFirstBufferClear());
    EXPECT_NE(screen_.buffer(1)[0], 0) << "more than one buffer was cleared";
}

TEST_F(FbLinuxTest, ShowingGoesRoundTheBuffersAndAReaderFollows) {
    for (const int buffers : {3, 2}) {
        FbLinux drawing("/dev/fb0", buffers);
        drawing.init();
        FbLinux reading("/dev/fb0");
        reading.init();
        EXPECT_EQ(reading.width() * 1000 + reading.height(), WIDTH * 1000 + HEIGHT);
        EXPECT_EQ(number(reading.frontbufferAddress(), reading.backbufferAddress()), buffers - 1);
        const unsigned char* const start = drawing.backbufferAddress();
        EXPECT_EQ(number(drawing.frontbufferAddress(), start), buffers - 1);
        for (int frame = 0; frame < 5; ++frame) {
            const int shown = frame % buffers;
            EXPECT_EQ(number(drawing.backbufferAddress(), start), shown);
            drawing.backbufferAddress()[5] = static_cast<unsigned char>(70 + frame);
            drawing.show();
            EXPECT_EQ(screen_.state().yoffset, static_cast<std::uint32_t>(shown) * HEIGHT);
            EXPECT_EQ(number(drawing.frontbufferAddress(), start), shown);
            EXPECT_EQ(number(drawing.currentAddress(), start), shown);
            EXPECT_EQ(reading.currentAddress()[5], 70 + frame);
        }
    }
}

TEST_F(FbLinuxTest, ReadingRefusesToDraw) {
    screen_.paint(0, 1);
    screen_.state().yoffset = HEIGHT;
    FbLinux reading("/dev/fb0");
    reading.init();
    EXPECT_THAT(textThrownBy([&] { reading.show(); }), EndsWith(" Not allowed in read only mode"));
    EXPECT_THAT(textThrownBy([&] { reading.clear(); }), EndsWith(" Not allowed in read only mode"));
    EXPECT_EQ(screen_.state().yoffset, HEIGHT);
    EXPECT_FALSE(isFirstBufferClear());
}

TEST_F(FbLinuxTest, FailuresNameWhatFailed) {
    EXPECT_THAT(initFailure("/dev/missing", 1), EndsWith(" frambuffer open: No such file or directory"));
    EXPECT_THAT(initFailure("/dev/null", 1), EndsWith(" screen info: Inappropriate ioctl for device"));
    EXPECT_THAT(initFailure("/dev/fb0", 4), EndsWith(" screen info: Invalid argument"));
    EXPECT_THAT(initFailure("/dev/fb0", -1), EndsWith(" screen info: Invalid argument"));
    FbLinux drawing("/dev/fb0", 3);
    drawing.init();
    drawing.show();
    screen_.state().yresVirtual = HEIGHT;
    EXPECT_THAT(textThrownBy([&] { drawing.show(); }), EndsWith(" pan: Invalid argument"));
    FbLinux closed("/dev/fb0");
    // Where a processor is emulated, this request is refused before anybody looks at the descriptor.
    EXPECT_THAT(textThrownBy([&] { closed.waitVSync(); }),
                AnyOf(EndsWith(" vsync: Bad file descriptor"), EndsWith(" vsync: Function not implemented")));
    EXPECT_THAT(textThrownBy([&] { closed.currentAddress(); }),
                EndsWith(" screen info: Bad file descriptor"));
    screen_.state().smemLen = 0;
    EXPECT_THAT(textThrownBy([] { FbLinux("/dev/fb0").init(); }),
                EndsWith(" map framebuffer: Invalid argument"));
}

TEST_F(FbLinuxTest, ASignalEndsTheWaitForAFrameWithoutAnError) {
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGALRM, &interrupt, nullptr);
    const itimerval often{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    FbLinux drawing("/dev/fb0", 3);
    EXPECT_NO_THROW(drawing.init());
    for (int i = 0; i < 20; ++i)
        EXPECT_NO_THROW(drawing.waitVSync());
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
}

TEST_F(FbLinuxTest, MappingTellsTheGeometry) {
    FbLinux("/dev/fb0").init();
    EXPECT_THAT(log_.messages(),
                ElementsAre("LogLight Framebuffer is 40x30x32, virtual is 40x90",
                            "LogLight   Pixel Clock: 33333kHz, Acceleration: 0, Capabilities: 00000000",
                            "LogLight   PanX: 0, PanY: 1, WrapY: 0",
                            "LogLight   Line: 160, MMIO start: 0x00000000, len: 0x00000000, "
                            "SMEM start: 0x00000000, len: 0x00003840"));
}

TEST_F(FbLinuxTest, ABufferOutsideTheMappingHasNoAddressAndNoHeightIsNoDivision) {
    FbLinux reading("/dev/fb0");
    reading.init();
    const auto address = [&](std::uint32_t xres, std::uint32_t yres, std::uint32_t bits,
                             std::uint32_t yoffset) {
        screen_.state().xres = xres;
        screen_.state().yres = yres;
        screen_.state().bitsPerPixel = bits;
        screen_.state().yoffset = yoffset;
        return reading.currentAddress();
    };
    EXPECT_NE(address(40, 30, 32, 60), nullptr);
    EXPECT_EQ(address(40, 30, 32, 90), nullptr) << "behind the last buffer";
    EXPECT_EQ(address(40, 30, 32, ~0U), nullptr) << "offset of all ones";
    EXPECT_EQ(address(40, 91, 32, 0), nullptr) << "frame larger than the memory";
    EXPECT_EQ(address(41, 30, 32, 60), nullptr) << "the last frame does not fit";
    EXPECT_EQ(address(40, 30, 40, 60), nullptr) << "nor does it with deeper pixels";
    EXPECT_EQ(address(0x10000, 0x10000, 32, 0), nullptr) << "size wraps at 32 bits";
    EXPECT_EQ(address(1U << 31, 1U << 31, 32, 0), nullptr) << "size wraps at 64 bits";
    EXPECT_EQ(address(1, 1, 32, 0x40000000), nullptr) << "place wraps";
    EXPECT_EQ(address(40, 0, 32, 60), reading.backbufferAddress());
    EXPECT_NO_THROW(FbLinux("/dev/fb0").init());
}

TEST_F(FbLinuxTest, ClearingStaysInsideTheMemory) {
    FbLinux drawing("/dev/fb0", 3);
    drawing.init();
    drawing.show();
    drawing.show();
    screen_.paint(2, 3);
    EXPECT_EQ(truncate(screen_.path("/dev/fb0").c_str(), 2 * FRAME + 100), 0);
    drawing.clear();
    EXPECT_EQ(std::count(screen_.buffer(2), screen_.buffer(2) + 100, 0), 100);
    EXPECT_EQ(drawing.backbufferAddress(), nullptr);
    EXPECT_EQ(truncate(screen_.path("/dev/fb0").c_str(), 10), 0);
    EXPECT_NO_THROW(drawing.clear());
}

} // namespace
