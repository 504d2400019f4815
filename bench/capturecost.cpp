#include "apps/web/service/screencapture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <malloc.h>
#include <png.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// Measures a capture of the display and, in the same run, libpng encoding the same pixels from memory to
// memory. Runs as a process of a virtual device. Prints for each of the two: median and longest processor
// time in milliseconds, peak of allocated memory in KiB, and the size of the image.

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void __libc_free(void* block);

namespace {

constexpr int ROUNDS = 15;

std::size_t allocated = 0;
std::size_t peak = 0;

void* counted(void* block) {
    allocated += malloc_usable_size(block);
    peak = std::max(peak, allocated);
    return block;
}

} // namespace

// Replace the C library's functions in this program and all libraries.

extern "C" void* malloc(std::size_t size) {
    return counted(__libc_malloc(size));
}

extern "C" void* calloc(std::size_t count, std::size_t size) {
    return counted(__libc_calloc(count, size));
}

extern "C" void* realloc(void* block, std::size_t size) {
    allocated -= malloc_usable_size(block);
    return counted(__libc_realloc(block, size));
}

extern "C" void free(void* block) {
    allocated -= malloc_usable_size(block);
    __libc_free(block);
}

namespace {

// Counts the bytes and discards them.
class Drain : public std::streambuf {
public:
    std::size_t size = 0;

private:
    std::streamsize xsputn(const char*, std::streamsize length) override {
        size += static_cast<std::size_t>(length);
        return length;
    }
};

std::size_t capturePicture(ScreenCapture& capture) {
    Drain drain;
    std::ostream out(&drain);
    out << capture;
    return drain.size;
}

void append(png_structp png, png_bytep data, png_size_t length) {
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<char*>(data), length);
}

std::size_t encodeInMemory(std::vector<png_bytep>& rows, std::uint32_t width) {
    std::string out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &out, append, nullptr);
    png_set_IHDR(png, info, width, static_cast<png_uint_32>(rows.size()), 8, PNG_COLOR_TYPE_RGB_ALPHA,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_BGR, nullptr);
    png_destroy_write_struct(&png, &info);
    return out.size();
}

// Processor time of this process; other load on the machine does not count.
double processorMs() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

struct Cost {
    std::vector<double> times;
    std::size_t peakBytes = 0;
    std::size_t imageBytes = 0;

    template <typename Action>
    void measure(Action action) {
        const std::size_t before = peak = allocated;
        const double begin = processorMs();
        imageBytes = action();
        times.push_back(processorMs() - begin);
        peakBytes = std::max(peakBytes, peak - before);
    }

    void print(const char* name) {
        std::sort(times.begin(), times.end());
        std::printf("%s %.2f %.2f %zu %zu\n", name, times[times.size() / 2], times.back(), peakBytes / 1024,
                    imageBytes);
    }
};

} // namespace

int main() try {
    ScreenCapture capture;
    const unsigned char* const shown = capture.currentAddress();
    if (shown == nullptr)
        throw std::runtime_error("Nothing is on display");
    const auto rowSize = static_cast<std::size_t>(capture.rowSize());
    std::vector<unsigned char> pixels(shown, shown + rowSize * capture.height());
    std::vector<png_bytep> rows(capture.height());
    for (std::size_t row = 0; row < rows.size(); ++row)
        rows[row] = &pixels[row * rowSize];
    Cost captured;
    Cost alone;
    for (int round = 0; round < ROUNDS; ++round) {
        captured.measure([&] { return capturePicture(capture); });
        alone.measure([&] { return encodeInMemory(rows, capture.width()); });
    }
    captured.print("capture");
    alone.print("alone");
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
