#include "apps/gui/common/fb-linux.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/diagnostics/logwriter.h"
#include "tests/unit/gui/virtualscreen.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/time.h>

namespace {

using testing::AnyOf;
using testing::EndsWith;

class FbLinuxTest : public testing::Test {
protected:
    static constexpr std::uint32_t WIDTH = 40;
    static constexpr std::uint32_t HEIGHT = 30;
    static constexpr std::size_t FRAME = 4 * WIDTH * HEIGHT;

    /// Which buffer an address of `framebuffer`, whose buffers begin at `start`, belongs to.
    static std::ptrdiff_t number(const unsigned char* address, const unsigned char* start) {
        return (address - start) / static_cast<std::ptrdiff_t>(FRAME);
    }

    template <typename Action>
    static std::string failure(Action action) {
        try {
            action();
        } catch (const std::exception& error) {
            return error.what();
        }
        return "nothing thrown";
    }

    static std::string initFailure(const std::string& path, int buffers) {
        return failure([&] { FbLinux(path, buffers).init(); });
    }

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
    EXPECT_EQ(std::count(screen_.buffer(0), screen_.buffer(1), 0), std::ptrdiff_t{FRAME});
    EXPECT_EQ(drawing.currentAddress(), drawing.backbufferAddress());
    EXPECT_NE(screen_.buffer(1)[0], 0) << "more than one buffer was cleared";
}

TEST_F(FbLinuxTest, ShowingGoesRoundTheBuffers) {
    FbLinux drawing("/dev/fb0", 3);
    drawing.init();
    const unsigned char* const start = drawing.backbufferAddress();
    EXPECT_EQ(number(drawing.frontbufferAddress(), start), 2);
    for (const int shown : {0, 1, 2, 0}) {
        EXPECT_EQ(number(drawing.backbufferAddress(), start), shown);
        drawing.show();
        EXPECT_EQ(number(drawing.frontbufferAddress(), start), shown);
        EXPECT_EQ(number(drawing.currentAddress(), start), shown);
        EXPECT_EQ(screen_.state().yoffset, static_cast<std::uint32_t>(shown) * HEIGHT);
    }
    FbLinux pair("/dev/fb0", 2);
    pair.init();
    pair.show();
    EXPECT_EQ(number(pair.backbufferAddress(), pair.frontbufferAddress()), 1);
    pair.show();
    EXPECT_EQ(number(pair.backbufferAddress(), pair.frontbufferAddress()), -1);
}

TEST_F(FbLinuxTest, DrawingReachesTheReaderWhoeverPans) {
    FbLinux drawing("/dev/fb0", 3);
    drawing.init();
    FbLinux reading("/dev/fb0");
    reading.init();
    drawing.show();
    drawing.backbufferAddress()[5] = 77;
    EXPECT_EQ(reading.currentAddress()[5], 0);
    drawing.show();
    EXPECT_EQ(reading.currentAddress()[5], 77);
    EXPECT_EQ(number(reading.frontbufferAddress(), reading.backbufferAddress()), 2);
    EXPECT_EQ(drawing.width() * 1000 + drawing.height(), WIDTH * 1000 + HEIGHT);
}

TEST_F(FbLinuxTest, ReadingRefusesToDraw) {
    screen_.paint(0, 1);
    screen_.state().yoffset = HEIGHT;
    FbLinux reading("/dev/fb0");
    reading.init();
    EXPECT_THAT(failure([&] { reading.show(); }), EndsWith(" Not allowed in read only mode"));
    EXPECT_THAT(failure([&] { reading.clear(); }), EndsWith(" Not allowed in read only mode"));
    EXPECT_EQ(screen_.state().yoffset, HEIGHT);
    EXPECT_NE(std::count(screen_.buffer(0), screen_.buffer(1), 0), std::ptrdiff_t{FRAME});
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
    EXPECT_THAT(failure([&] { drawing.show(); }), EndsWith(" pan: Invalid argument"));
    FbLinux closed("/dev/fb0");
    // Where a processor is emulated, this request is refused before anybody looks at the descriptor.
    EXPECT_THAT(failure([&] { closed.waitVSync(); }),
                AnyOf(EndsWith(" vsync: Bad file descriptor"), EndsWith(" vsync: Function not implemented")));
    EXPECT_THAT(failure([&] { closed.currentAddress(); }), EndsWith(" screen info: Bad file descriptor"));
    screen_.state().smemLen = 0;
    EXPECT_THAT(failure([] { FbLinux("/dev/fb0").init(); }), EndsWith(" map framebuffer: Invalid argument"));
}

TEST_F(FbLinuxTest, ASignalEndsTheWaitForAFrameWithoutAnError) {
    struct sigaction old {};
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGALRM, &interrupt, &old);
    const itimerval often{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    FbLinux drawing("/dev/fb0", 3);
    EXPECT_NO_THROW(drawing.init());
    for (int i = 0; i < 20; ++i) {
        EXPECT_NO_THROW(drawing.waitVSync());
    }
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &old, nullptr);
}

TEST_F(FbLinuxTest, MappingTellsTheGeometry) {
    const std::string log = screen_.path("/log");
    std::ofstream(log).close();
    gComponentLogLevel = nullptr;
    logWriter().setDevice(log.c_str());
    FbLinux("/dev/fb0").init();
    logWriter().setDevice("/dev/kmsg");
    std::ifstream lines(log);
    for (const char* expected :
         {" Framebuffer is 40x30x32, virtual is 40x90",
          "   Pixel Clock: 33333kHz, Acceleration: 0, Capabilities: 00000000",
          "   PanX: 0, PanY: 1, WrapY: 0",
          "   Line: 160, MMIO start: 0x00000000, len: 0x00000000, SMEM start: 0x00000000, len: 0x00003840"}) {
        std::string line;
        EXPECT_TRUE(std::getline(lines, line));
        EXPECT_THAT(line, testing::HasSubstr("LogLight    "));
        EXPECT_THAT(line, EndsWith(expected));
    }
}

TEST_F(FbLinuxTest, NoHeightIsNoDivision) {
    screen_.state().yres = 0;
    screen_.state().yoffset = 60;
    FbLinux reading("/dev/fb0");
    reading.init();
    EXPECT_EQ(reading.currentAddress(), reading.backbufferAddress());
    EXPECT_NE(reading.currentAddress(), nullptr);
}

struct Lie {
    const char* name;
    std::uint32_t xres, yres, bits, yoffset;
};

class FbLinuxLies : public FbLinuxTest, public testing::WithParamInterface<Lie> {};

TEST_P(FbLinuxLies, ABufferOutsideTheMappingHasNoAddress) {
    FbLinux reading("/dev/fb0");
    reading.init();
    screen_.state().xres = GetParam().xres;
    screen_.state().yres = GetParam().yres;
    screen_.state().bitsPerPixel = GetParam().bits;
    screen_.state().yoffset = GetParam().yoffset;
    EXPECT_EQ(reading.currentAddress(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(FbLinux, FbLinuxLies,
                         testing::Values(Lie{"OffsetBehindTheLastBuffer", 40, 30, 32, 90},
                                         Lie{"OffsetOfAllOnes", 40, 30, 32, ~0U},
                                         Lie{"FrameLargerThanTheMemory", 40, 91, 32, 0},
                                         Lie{"LastFrameDoesNotFit", 41, 30, 32, 60},
                                         Lie{"SizeWrapsAt32Bits", 0x10000, 0x10000, 32, 0},
                                         Lie{"SizeWrapsAt64Bits", ~0U, ~0U, ~0U, 0},
                                         Lie{"PlaceWraps", 1, 1, 32, 0x40000000}),
                         [](const auto& lie) { return lie.param.name; });

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
