#include "apps/web/service/screencapture.h"
#include "target.h"
#include "tests/unit/gui/virtualscreen.h"

#include <optional>
#include <png.h>
#include <sstream>

// A picture of a framebuffer with any geometry, and a program that draws on it. Input: the numbers of its
// state, its pixels, then the number of buffers that the program asks for.

namespace {

constexpr std::size_t MEMORY = 3 * 4 * 4 * 4;

std::string literalPicture(const ScreenState& state, const unsigned char* pixels) {
    const std::uint64_t rows = state.yres;
    const std::uint64_t size = std::uint64_t{state.xres} * rows; // at most 64 bits, of which 62 are left
    if (rows == 0 || size == 0 || size > MEMORY || state.bitsPerPixel != 32)
        return "";
    const std::uint64_t begin = state.yoffset / rows * size * 4;
    if (begin + size * 4 > std::min<std::uint64_t>(MEMORY, state.smemLen))
        return "";
    return {reinterpret_cast<const char*>(pixels) + begin, static_cast<std::size_t>(size * 4)};
}

std::string decoded(const std::string& png) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_memory(&image, png.data(), png.size()));
    image.format = PNG_FORMAT_BGRA;
    std::string pixels(PNG_IMAGE_SIZE(image), '\0');
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    return pixels;
}

// Closes the descriptor that a capture leaves open until its process ends.
struct LeftOpen {
    int fd = dup(STDERR_FILENO);
    LeftOpen() { close(fd); }
    ~LeftOpen() { close(fd); }
};

std::string bytesOf(VirtualScreen& screen) {
    return {reinterpret_cast<const char*>(screen.buffer(0)), MEMORY};
}

// Shows each buffer and clears the next one; all other bytes stay.
void draw(VirtualScreen& screen, int buffers) {
    const LeftOpen leftOpen;
    FbLinux display("/dev/fb0", buffers);
    display.init();
    const std::uint64_t row = std::min<std::uint64_t>(MEMORY, display.rowSize());
    const std::size_t frame = static_cast<std::size_t>(row) * std::min<std::size_t>(MEMORY, display.height());
    const std::size_t usable = std::min<std::size_t>(MEMORY, screen.state().smemLen);
    for (int i = 1; i <= buffers; ++i) {
        display.show();
        EXPECT_EQ(display.currentAddress(), display.frontbufferAddress());
        std::string expected = bytesOf(screen);
        const std::size_t begin = std::min(usable, static_cast<std::size_t>(i % buffers) * frame);
        const std::size_t size = std::min(usable - begin, frame);
        display.clear();
        EXPECT_EQ(bytesOf(screen), expected.replace(begin, size, size, '\0'));
    }
}

} // namespace

void handle(std::string_view input) {
    static VirtualScreen screen(4, 4);
    for (ScreenState::Word* number = &screen.state().xres; number <= &screen.state().smemLen; ++number)
        *number = takeNumber<std::uint32_t>(input);
    take(input, MEMORY).copy(reinterpret_cast<char*>(screen.buffer(0)), MEMORY);
    const LeftOpen leftOpen;
    std::optional<ScreenCapture> capture;
    std::string pixels;
    try {
        capture.emplace();
        std::ostringstream out;
        out << *capture;
        pixels = decoded(out.str());
    } catch (const std::runtime_error&) {
        pixels.clear(); // no mapping, or no picture
    }
    EXPECT_EQ(pixels, capture ? literalPicture(screen.state(), screen.buffer(0)) : "");
    try {
        if (const int buffers = takeNumber<std::uint8_t>(input) % 4; buffers > 0)
            draw(screen, buffers);
    } catch (const std::runtime_error&) { // refused by the driver
    }
}
