#include "apps/gui/common/fb-linux.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/gui/virtualscreen.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>

namespace {

// The request that ioctl fails with `error`, if it is not 0.
struct {
    unsigned long request;
    int error;
} fault;

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (fault.error == 0 || request != fault.request)
        return reinterpret_cast<decltype(&ioctl)>(dlsym(RTLD_NEXT, "ioctl"))(fd, request, argument);
    errno = fault.error;
    return -1;
}

namespace {

using testing::ElementsAre;
using testing::EndsWith;

class FbLinuxTest : public testing::Test {
protected:
    static constexpr std::uint32_t WIDTH = 40;
    static constexpr std::uint32_t HEIGHT = 30;
    static constexpr std::ptrdiff_t FRAME = std::ptrdiff_t{4} * WIDTH * HEIGHT;

    LogCapture log_;
    VirtualScreen screen_{WIDTH, HEIGHT};
};

TEST_F(FbLinuxTest, DrawingBeginsWithClearFirstBufferOnDisplay) {
    screen_.paint(0, 1);
    screen_.paint(1, 2);
    screen_.state().yoffset = HEIGHT;
    FbLinux drawing("/dev/fb0", 2);
    drawing.init();
    EXPECT_EQ(screen_.state().yoffset + screen_.state().yresVirtual, 2 * HEIGHT);
    EXPECT_EQ(std::count(screen_.buffer(0), screen_.buffer(1), 0), FRAME);
    EXPECT_NE(screen_.buffer(1)[0], 0) << "more than one buffer was cleared";
}

TEST_F(FbLinuxTest, ShowingCyclesThroughBuffersAndReaderFollows) {
    for (const int buffers : {3, 2}) {
        FbLinux drawing("/dev/fb0", buffers);
        drawing.init();
        FbLinux reading("/dev/fb0");
        reading.init();
        EXPECT_EQ(reading.width() * 1000 + reading.height(), WIDTH * 1000 + HEIGHT);
        EXPECT_EQ(reading.frontbufferAddress() - reading.backbufferAddress(), (buffers - 1) * FRAME);
        EXPECT_THAT(textThrownBy([&] { reading.show(); }), EndsWith(" Not allowed in read only mode"));
        EXPECT_THAT(textThrownBy([&] { reading.clear(); }), EndsWith(" Not allowed in read only mode"));
        unsigned char* const start = drawing.backbufferAddress();
        EXPECT_EQ(drawing.frontbufferAddress() - start, (buffers - 1) * FRAME);
        for (int frame = 0; frame < 5; ++frame) {
            unsigned char* const shown = start + frame % buffers * FRAME;
            EXPECT_EQ(drawing.backbufferAddress(), shown);
            shown[5] = static_cast<unsigned char>(70 + frame);
            drawing.show();
            EXPECT_EQ(drawing.frontbufferAddress(), shown);
            EXPECT_EQ(drawing.currentAddress(), shown);
            EXPECT_EQ(reading.currentAddress()[5], 70 + frame);
        }
    }
}

TEST_F(FbLinuxTest, FailuresNameTheFailedCallAndSignalsDoNotFail) {
    const struct {
        const char* device;
        unsigned long request;
        int error;
        const char* text;
    } rows[] = {
        {"/dev/missing", 0, 0, " frambuffer open: No such file or directory"},
        {"/dev/null", 0, 0, " screen info: Inappropriate ioctl for device"},
        {"/dev/fb0", FBIOPUT_VSCREENINFO, EIO, " screen info: Input/output error"},
        {"/dev/fb0", FBIOGET_FSCREENINFO, EIO, " screen info: Input/output error"},
        {"/dev/fb0", FBIO_WAITFORVSYNC, EIO, " vsync: Input/output error"},
        {"/dev/fb0", FBIO_WAITFORVSYNC, EINTR, "nothing thrown"},
        {"/dev/fb0", FBIOPAN_DISPLAY, EIO, " pan: Input/output error"},
        {"/dev/fb0", FBIOPAN_DISPLAY, EINTR, "nothing thrown"},
    };
    for (const auto& row : rows) {
        fault = {row.request, row.error};
        EXPECT_THAT(textThrownBy([&] { FbLinux(row.device, 2).init(); }), EndsWith(row.text)) << row.error;
    }
    fault = {};
    screen_.state().smemLen = 0;
    EXPECT_THAT(textThrownBy([] { FbLinux("/dev/fb0").init(); }),
                EndsWith(" map framebuffer: Invalid argument"));
}

TEST_F(FbLinuxTest, MappingLogsTheGeometry) {
    FbLinux("/dev/fb0").init();
    EXPECT_THAT(log_.messages(),
                ElementsAre("LogLight Framebuffer is 40x30x32, virtual is 40x90",
                            "LogLight   Pixel Clock: 33333kHz, Acceleration: 0, Capabilities: 00000000",
                            "LogLight   PanX: 0, PanY: 1, WrapY: 0",
                            "LogLight   Line: 160, MMIO start: 0x00000000, len: 0x00000000, "
                            "SMEM start: 0x00000000, len: 0x00003840"));
}

// The fuzzer of the picture tries other geometries.
TEST_F(FbLinuxTest, BufferOutsideMappingHasNoAddress) {
    FbLinux reading("/dev/fb0");
    reading.init();
    const std::array<std::uint32_t, 4> outside[] = {
        {40, 30, 40, 60}, {40, 30, 32, ~0U}, {1U << 31, 1U << 31, 32, 0}, {1, 1, 32, 0x40000000}};
    for (const auto& [xres, yres, bits, yoffset] : outside) {
        screen_.setGeometry(xres, yres, bits, yoffset);
        EXPECT_EQ(reading.currentAddress(), nullptr) << xres << 'x' << yres << 'x' << bits;
    }
}

TEST_F(FbLinuxTest, ClearingStaysInsideTheMemory) {
    FbLinux drawing("/dev/fb0", 3);
    drawing.init();
    drawing.show();
    screen_.paint(1, 3);
    for (const std::ptrdiff_t size : {FRAME + 100, std::ptrdiff_t{10}}) {
        EXPECT_EQ(truncate(screen_.path("/dev/fb0").c_str(), size), 0);
        drawing.clear();
        EXPECT_EQ(drawing.backbufferAddress(), nullptr);
        EXPECT_TRUE(size < FRAME || std::count(screen_.buffer(1), screen_.buffer(1) + 100, 0) == 100);
    }
}

} // namespace
