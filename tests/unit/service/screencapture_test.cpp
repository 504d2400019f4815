#include "apps/web/service/screencapture.h"

#include "tests/unit/gui/virtualscreen.h"

#include <functional>
#include <gmock/gmock.h>
#include <malloc.h>
#include <png.h>
#include <sstream>
#include <vector>

namespace {

using testing::EndsWith;
using Bytes = std::vector<unsigned char>;

struct Picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    Bytes pixels; // blue, green, red, alpha
};

Picture decoded(const std::string& png) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_memory(&image, png.data(), png.size())) << image.message;
    EXPECT_EQ(image.format, PNG_FORMAT_RGBA | 0U);
    image.format = PNG_FORMAT_BGRA;
    Picture picture{image.width, image.height, Bytes(PNG_IMAGE_SIZE(image))};
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr)) << image.message;
    return picture;
}

/// A stream that does something with each piece that it is given.
class Sink : private std::streambuf, public std::ostream {
public:
    using Action = std::function<void(const char*, std::streamsize)>;

    explicit Sink(Action action)
        : std::ostream(static_cast<std::streambuf*>(this)), action_(std::move(action)) {
        exceptions(std::ios::badbit);
    }

private:
    std::streamsize xsputn(const char* data, std::streamsize length) override {
        action_(data, length);
        return length;
    }

    Action action_;
};

std::string captured(ScreenCapture& capture) {
    std::ostringstream out;
    out << capture;
    return out.str();
}

std::string failure(ScreenCapture& capture, std::ostream& out) {
    try {
        out << capture;
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing thrown";
}

std::string failure(ScreenCapture& capture) {
    std::ostringstream out;
    return failure(capture, out);
}

class ScreenCaptureSizes : public testing::TestWithParam<std::pair<std::uint32_t, std::uint32_t>> {};

TEST_P(ScreenCaptureSizes, EveryPixelIsThatOfTheBufferOnDisplay) {
    const auto [width, height] = GetParam();
    VirtualScreen screen(width, height);
    for (std::uint32_t buffer = 0; buffer < 3; ++buffer) {
        screen.paint(buffer, buffer);
    }
    ScreenCapture capture;
    for (const std::uint32_t buffer : {0U, 2U}) {
        screen.state().yoffset = buffer * height;
        const Picture picture = decoded(captured(capture));
        EXPECT_EQ(picture.width, width);
        EXPECT_EQ(picture.height, height);
        EXPECT_EQ(picture.pixels, Bytes(screen.buffer(buffer), screen.buffer(buffer) + screen.frameSize()))
            << "buffer " << buffer;
    }
}

INSTANTIATE_TEST_SUITE_P(ScreenCapture, ScreenCaptureSizes,
                         testing::Values(std::pair{480, 272}, std::pair{800, 480}, std::pair{1920, 1080},
                                         std::pair{1, 1}));

class ScreenCaptureTest : public testing::Test {
protected:
    VirtualScreen screen_{320, 200};
    ScreenCapture capture_;
};

TEST_F(ScreenCaptureTest, APictureIsOfOneFrameWhileTheDisplayGoesOn) {
    screen_.paint(0, 1);
    const Bytes shown(screen_.buffer(0), screen_.buffer(1));
    std::string png;
    std::uint32_t frame = 0;
    Sink out([&](const char* data, std::streamsize length) {
        png.append(data, static_cast<std::size_t>(length));
        if (frame < 2) { // the display draws the next two frames while the first is being encoded
            ++frame;
            screen_.paint(frame, 10 + frame);
            screen_.state().yoffset = frame * 200;
        }
    });
    out << capture_;
    EXPECT_EQ(frame, 2U);
    EXPECT_EQ(decoded(png).pixels, shown);
    EXPECT_EQ(decoded(captured(capture_)).pixels, Bytes(screen_.buffer(2), screen_.buffer(3)));
}

TEST_F(ScreenCaptureTest, ASizeThatChangesIsThatOfTheNextPicture) {
    screen_.paint(0, 1);
    screen_.state().xres = 100;
    screen_.state().yres = 500;
    const Picture picture = decoded(captured(capture_));
    EXPECT_EQ(picture.width * 1000 + picture.height, 100'500U);
    EXPECT_EQ(picture.pixels, Bytes(screen_.buffer(0), screen_.buffer(0) + 4 * 100 * 500));
}

TEST_F(ScreenCaptureTest, GeometryThatLiesFailsThePictureOnly) {
    const struct {
        const char* text;
        std::uint32_t xres, yres, bits, yoffset;
    } lies[] = {
        {" PNG: write info error", 0, 200, 32, 0},      {" PNG: write info error", 320, 0, 32, 0},
        {" PNG: write info error", ~0U, ~0U, 32, 0},    {" PNG: write image error", 320, 601, 32, 0},
        {" PNG: write image error", 321, 200, 32, 400}, {" PNG: write image error", 320, 200, 32, 600},
        {" PNG: write image error", 320, 200, 16, 0},   {" PNG: write image error", 320, 200, 24, 0},
        {" PNG: write image error", 320, 200, 0, 0},    {" PNG: write image error", 65536, 65536, 32, 0},
    };
    for (const auto& lie : lies) {
        screen_.state().xres = lie.xres;
        screen_.state().yres = lie.yres;
        screen_.state().bitsPerPixel = lie.bits;
        screen_.state().yoffset = lie.yoffset;
        EXPECT_THAT(failure(capture_), EndsWith(lie.text)) << lie.xres << "x" << lie.yres << "x" << lie.bits;
    }
    screen_.state().xres = 320;
    screen_.state().yres = 200;
    screen_.state().bitsPerPixel = 32;
    screen_.state().yoffset = 0;
    EXPECT_EQ(failure(capture_), "nothing thrown");
    EXPECT_EQ(truncate(screen_.path("/dev/fb0").c_str(), 320 * 200), 0);
    EXPECT_THAT(failure(capture_), EndsWith(" PNG: write image error"));
}

TEST_F(ScreenCaptureTest, AStreamThatThrowsEndsThePictureAtAnyPiece) {
    screen_.paint(0, 1);
    int pieces = 0;
    Sink counting([&](const char*, std::streamsize) { ++pieces; });
    counting << capture_;
    EXPECT_GT(pieces, 20);
    for (int last = 0; last < pieces; ++last) {
        int piece = 0;
        Sink out([&](const char*, std::streamsize) {
            if (piece++ == last) {
                throw std::runtime_error("full");
            }
        });
        EXPECT_THAT(failure(capture_, out),
                    EndsWith(last < 4 ? " PNG: write info error" : " PNG: write image error"));
        EXPECT_EQ(piece, last + 1) << "written to after the failure";
        unsigned char late = 0;
        capture_.write(&late, 1);
        EXPECT_EQ(piece, last + 1) << "the failed picture's stream is still in use";
    }
    EXPECT_EQ(decoded(captured(capture_)).pixels, Bytes(screen_.buffer(0), screen_.buffer(1)));
}

TEST_F(ScreenCaptureTest, PiecesAreWrittenAsTheyAreEncoded) {
    screen_.paint(0, 1); // noise: as large encoded as it is on the screen
    const std::size_t before = mallinfo2().uordblks;
    std::size_t most = 0;
    std::streamsize largest = 0;
    Sink out([&](const char*, std::streamsize length) {
        largest = std::max(largest, length);
        most = std::max<std::size_t>(most, mallinfo2().uordblks - before);
    });
    out << capture_;
    EXPECT_LE(largest, 8192);
#ifndef __SANITIZE_ADDRESS__ // with its own allocator there are no such figures
    EXPECT_GT(most, 0U);
#endif
    EXPECT_LT(most, 400'000U) << "more than deflate's 260 KiB and some rows";
}

} // namespace
