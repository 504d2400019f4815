#include "apps/web/service/screencapture.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <csetjmp>
#include <ostream>
#include <png.h>
#include <type_traits>
#include <vector>

namespace {

constexpr char LIBRARY_VERSION[] = "1.6.37"; // any 1.6 takes it
constexpr int BIT_DEPTH = 8;
constexpr std::uint32_t SCREEN_BITS_PER_PIXEL = 32;

// Sets the stream of a picture until the picture is finished or fails.
class StreamInUse {
public:
    StreamInUse(std::ostream*& place, std::ostream& out) : place_(place) { place_ = &out; }
    ~StreamInUse() { place_ = nullptr; }
    StreamInUse(const StreamInUse&) = delete;
    StreamInUse& operator=(const StreamInUse&) = delete;

private:
    std::ostream*& place_;
};

// Runs one stage of the encoding; false after a libpng error. libpng then jumps back here past all frames in
// between: neither this function nor a stage has anything to destroy, and none of their variables changes
// after setjmp. The jump target is invalid when this function has returned: outside of stages libpng is only
// called to create and to destroy, which does not jump.
template <typename Stage>
bool succeeds(png_structp png, const Stage& stage) {
    static_assert(std::is_trivially_destructible_v<Stage>);
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    stage();
    return true;
}

// False when the stream throws.
bool passOn(ScreenCapture& capture, const unsigned char* data, std::size_t length) {
    try {
        capture.write(data, static_cast<unsigned int>(length));
        return true;
    } catch (...) {
        return false;
    }
}

// libpng's write function. An exception must not pass through libpng, which is C, so it becomes a libpng
// error, raised after the exception was caught.
void writeData(png_structp png, png_bytep data, png_size_t length) {
    if (!passOn(*static_cast<ScreenCapture*>(png_get_io_ptr(png)), data, length))
        png_error(png, "Write Error");
}

// Owns libpng's structures. Each call is one stage; a failure throws its text.
class Encoder {
public:
    Encoder() : png_(png_create_write_struct(LIBRARY_VERSION, nullptr, nullptr, nullptr)) {
        if (png_ == nullptr)
            throwError(__FILE__, __LINE__, "PNG: create write struct error");
        info_ = png_create_info_struct(png_);
        if (info_ != nullptr)
            return;
        png_destroy_write_struct(&png_, nullptr);
        throwError(__FILE__, __LINE__, "PNG: create info error");
    }
    ~Encoder() { png_destroy_write_struct(&png_, &info_); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    void setOutput(ScreenCapture& capture) {
        if (!succeeds(png_, [this, &capture] { png_set_write_fn(png_, &capture, writeData, nullptr); }))
            throwError(__FILE__, __LINE__, "PNG: init io error");
    }

    void writeHeader(std::uint32_t width, std::uint32_t height) {
        const auto stage = [this, width, height] {
            png_set_IHDR(png_, info_, width, height, BIT_DEPTH, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                         PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
            png_write_info(png_, info_);
        };
        if (!succeeds(png_, stage))
            throwError(__FILE__, __LINE__, "PNG: write info error");
    }

    // `rows` are as many as the header says, each of width * 4 bytes.
    void writeImage(png_bytepp rows) {
        const auto stage = [this, rows] {
            png_set_rows(png_, info_, rows);
            png_write_png(png_, info_, PNG_TRANSFORM_BGR, nullptr); // the header is not written twice
        };
        if (!succeeds(png_, stage))
            throwError(__FILE__, __LINE__, "PNG: write image error");
    }

private:
    png_structp png_;
    png_infop info_ = nullptr;
};

std::vector<png_bytep> rowsOf(unsigned char* screen, std::uint32_t height, std::uint64_t rowSize) {
    std::vector<png_bytep> rows(height);
    for (png_bytep& row : rows) {
        row = screen;
        screen += rowSize;
    }
    return rows;
}

} // namespace

ScreenCapture::ScreenCapture() : FbLinux("/dev/fb0") {
    init();
}

void ScreenCapture::startWrite(std::ostream& out) {
    const StreamInUse inUse(out_, out);
    Encoder encoder;
    encoder.setOutput(*this);
    unsigned char* const screen = currentAddress(); // before the header: both are of the same geometry
    encoder.writeHeader(width(), height());
    if (screen == nullptr || bitsPerPixel() != SCREEN_BITS_PER_PIXEL)
        throwError(__FILE__, __LINE__, "PNG: write image error");
    std::vector<png_bytep> rows = rowsOf(screen, height(), rowSize());
    encoder.writeImage(rows.data());
}

void ScreenCapture::write(const unsigned char* data, unsigned int length) {
    if (out_ != nullptr)
        out_->write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(length));
}

std::ostream& operator<<(std::ostream& out, ScreenCapture& capture) {
    capture.startWrite(out);
    return out;
}
