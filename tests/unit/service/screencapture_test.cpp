#include "apps/web/service/screencapture.h"

#include "tests/unit/diagnostics/logcapture.h"
#include "tests/unit/gui/virtualscreen.h"

#include <functional>
#include <gmock/gmock.h>
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

// A stream that does something with each piece that it is given.
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

std::string failure(ScreenCapture& capture, std::ostream&& out = std::ostringstream()) {
    return textThrownBy([&] { out << capture; });
}

class ScreenCaptureTest : public testing::Test {
protected:
    VirtualScreen screen_{320, 200};
    ScreenCapture capture_;
};

TEST_F(ScreenCaptureTest, PictureShowsOneFrameWhileTheDisplayPans) {
    screen_.paint(0, 1);
    const Bytes shown(screen_.buffer(0), screen_.buffer(1));
    std::string png;
    std::uint32_t frame = 0;
    Sink out([&](const char* data, std::streamsize length) {
        png.append(data, static_cast<std::size_t>(length));
        if (frame < 2) { // the display pans twice while the first frame is encoded
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

TEST_F(ScreenCaptureTest, BadGeometryFailsOnlyItsPicture) {
    screen_.setGeometry(0, 200, 32, 0);
    EXPECT_THAT(failure(capture_), EndsWith(" PNG: write info error"));
    screen_.setGeometry(320, 200, 16, 0); // the fuzzer tries other geometries
    EXPECT_THAT(failure(capture_), EndsWith(" PNG: write image error"));
    screen_.paint(0, 1);
    screen_.setGeometry(100, 500, 32, 0);
    const Picture picture = decoded(captured(capture_));
    EXPECT_EQ(std::pair(picture.width, picture.height), std::pair(100U, 500U));
    EXPECT_EQ(picture.pixels, Bytes(screen_.buffer(0), screen_.buffer(0) + 4 * 100 * 500));
    EXPECT_EQ(truncate(screen_.path("/dev/fb0").c_str(), 4 * 100 * 499), 0);
    EXPECT_THAT(failure(capture_), EndsWith(" PNG: write image error"));
}

TEST_F(ScreenCaptureTest, ThrowingStreamEndsThePictureAtAnyPiece) {
    screen_.paint(0, 1);
    int pieces = 0;
    Sink counting([&](const char*, std::streamsize) { ++pieces; });
    counting << capture_;
    EXPECT_GT(pieces, 20);
    for (int last = 0; last < pieces; ++last) {
        int piece = 0;
        const auto fill = [&](const char*, std::streamsize) {
            if (piece++ == last)
                throw std::runtime_error("full");
        };
        EXPECT_THAT(failure(capture_, Sink(fill)),
                    EndsWith(last < 4 ? " PNG: write info error" : " PNG: write image error"));
        EXPECT_EQ(piece, last + 1) << "written to after the failure";
        unsigned char late = 0;
        capture_.write(&late, 1);
        EXPECT_EQ(piece, last + 1) << "the failed picture's stream is still in use";
    }
    EXPECT_EQ(decoded(captured(capture_)).pixels, Bytes(screen_.buffer(0), screen_.buffer(1)));
}

} // namespace
