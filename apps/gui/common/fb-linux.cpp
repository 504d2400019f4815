#include "apps/gui/common/fb-linux.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace {

constexpr unsigned long KHZ_PER_PICOSECOND = 1'000'000'000;

unsigned char* unmapped() {
    return static_cast<unsigned char*>(MAP_FAILED);
}

// The product, or the largest number if it does not fit: larger than any mapping.
std::uint64_t product(std::uint64_t left, std::uint64_t right) {
    std::uint64_t result = 0;
    const bool overflows = __builtin_mul_overflow(left, right, &result);
    return overflows ? std::numeric_limits<std::uint64_t>::max() : result;
}

} // namespace

FbLinux::FbLinux(const std::string& path, int buffers)
    : path_(path), buffers_(buffers), isReadOnly_(false), mapping_(unmapped()) {}

FbLinux::FbLinux(const std::string& path) : path_(path), isReadOnly_(true), mapping_(unmapped()) {}

FbLinux::~FbLinux() {
    if (mapping_ != unmapped())
        munmap(mapping_, memory_.smem_len);
    fd_.release();
}

void FbLinux::init() {
    mapFramebuffer();
}

void FbLinux::mapFramebuffer() {
    openDevice();
    readScreenInfo();
    setBuffers();
    if (ioctl(fd_.get(), FBIOGET_FSCREENINFO, &memory_) < 0)
        throwErrorNumber(__FILE__, __LINE__, "screen info");
    if (!isReadOnly_) {
        screen_.yoffset = 0;
        pan();
    }
    logGeometry();
    map();
    if (!isReadOnly_)
        clear();
}

void FbLinux::openDevice() {
    fd_ = Descriptor(open(path_.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd_.isOpen())
        throwErrorNumber(__FILE__, __LINE__, "frambuffer open");
}

void FbLinux::readScreenInfo() {
    if (ioctl(fd_.get(), FBIOGET_VSCREENINFO, &screen_) < 0)
        throwErrorNumber(__FILE__, __LINE__, "screen info");
}

void FbLinux::setBuffers() {
    if (isReadOnly_) {
        const std::uint32_t count = screen_.yres == 0 ? 0 : screen_.yres_virtual / screen_.yres;
        buffers_ = static_cast<int>(std::min<std::uint32_t>(count, INT_MAX));
        return;
    }
    waitVSync();
    screen_.yres_virtual =
        static_cast<std::uint32_t>(buffers_) * screen_.yres; // the driver refuses invalid counts
    if (ioctl(fd_.get(), FBIOPUT_VSCREENINFO, &screen_) < 0)
        throwErrorNumber(__FILE__, __LINE__, "screen info");
    readScreenInfo();
}

// A signal is not a failure: the next frame pans again.
void FbLinux::pan() {
    if (ioctl(fd_.get(), FBIOPAN_DISPLAY, &screen_) < 0 && errno != EINTR)
        throwErrorNumber(__FILE__, __LINE__, "pan");
}

void FbLinux::logGeometry() const {
    LOG_MESSAGE(LogLight, "Framebuffer is %ix%ix%i, virtual is %ix%i", screen_.xres, screen_.yres,
                screen_.bits_per_pixel, screen_.xres_virtual, screen_.yres_virtual);
    const unsigned long clock = screen_.pixclock == 0 ? 0 : KHZ_PER_PICOSECOND / screen_.pixclock;
    LOG_MESSAGE(LogLight, "  Pixel Clock: %lukHz, Acceleration: %i, Capabilities: %08x", clock, memory_.accel,
                memory_.capabilities);
    LOG_MESSAGE(LogLight, "  PanX: %i, PanY: %i, WrapY: %i", memory_.xpanstep, memory_.ypanstep,
                memory_.ywrapstep);
    LOG_MESSAGE(LogLight, "  Line: %i, MMIO start: 0x%08lx, len: 0x%08x, SMEM start: 0x%08lx, len: 0x%08x",
                memory_.line_length, memory_.mmio_start, memory_.mmio_len, memory_.smem_start,
                memory_.smem_len);
}

void FbLinux::map() {
    void* const start = mmap(nullptr, memory_.smem_len, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0);
    if (start == MAP_FAILED)
        throwErrorNumber(__FILE__, __LINE__, "map framebuffer");
    mapping_ = static_cast<unsigned char*>(start);
}

// A signal is not a failure: the next frame is drawn a little early.
void FbLinux::waitVSync() {
    std::uint32_t display = 0;
    if (ioctl(fd_.get(), FBIO_WAITFORVSYNC, &display) < 0 && errno != EINTR)
        throwErrorNumber(__FILE__, __LINE__, "vsync");
}

void FbLinux::requireWritable(int line) const {
    if (isReadOnly_)
        throwError(__FILE__, line, "Not allowed in read only mode");
}

void FbLinux::show() {
    requireWritable(__LINE__);
    screen_.yoffset = screen_.yres * static_cast<std::uint32_t>(index_);
    pan();
    if (++index_ >= buffers_)
        index_ = 0;
}

void FbLinux::clear() {
    requireWritable(__LINE__);
    const std::uint64_t usable = usableSize();
    const std::uint64_t begin = std::min(usable, product(static_cast<std::uint64_t>(index_), frameSize()));
    const std::uint64_t size = std::min(usable - begin, frameSize());
    if (size > 0)
        std::memset(mapping_ + begin, 0, static_cast<std::size_t>(size));
}

unsigned char* FbLinux::backbufferAddress() const {
    return bufferAddress(index_);
}

unsigned char* FbLinux::frontbufferAddress() const {
    return bufferAddress((index_ == 0 ? std::int64_t{buffers_} : index_) - 1);
}

unsigned char* FbLinux::currentAddress() {
    readScreenInfo();
    return bufferAddress(screen_.yres == 0 ? 0 : screen_.yoffset / screen_.yres);
}

unsigned char* FbLinux::bufferAddress(std::int64_t index) const {
    const std::uint64_t usable = usableSize();
    const std::uint64_t begin =
        product(static_cast<std::uint64_t>(index), frameSize()); // beyond any mapping if negative
    if (mapping_ == unmapped() || begin > usable || frameSize() > usable - begin)
        return nullptr;
    return mapping_ + begin;
}

// The accessible size of the mapping. If the device is a regular file, access beyond its end raises SIGBUS.
std::uint64_t FbLinux::usableSize() const {
    struct stat status {};
    if (mapping_ == unmapped() || fstat(fd_.get(), &status) < 0)
        return 0;
    if (!S_ISREG(status.st_mode))
        return memory_.smem_len;
    return std::min<std::uint64_t>(memory_.smem_len, static_cast<std::uint64_t>(status.st_size));
}

std::uint64_t FbLinux::bytesPerPixel() const {
    return (std::uint64_t{screen_.bits_per_pixel} + 7) / 8;
}

std::uint64_t FbLinux::rowSize() const {
    return product(screen_.xres, bytesPerPixel());
}

std::uint64_t FbLinux::frameSize() const {
    return product(rowSize(), screen_.yres);
}
