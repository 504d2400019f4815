#include "device/preload/preload.h"
#include "device/preload/screenstate.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/fb.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// The wrapper of ioctl: answers as a framebuffer driver for descriptors of the device's framebuffer file.
// Each call looks everything up, so that processes can fork and can inherit the descriptor.

namespace {

constexpr char FRAMEBUFFER[] = "/dev/fb0";
constexpr std::string_view STATE_SUFFIX = ".state";
constexpr unsigned long FRAMEBUFFER_REQUESTS = 0x46; // the second byte of each request
constexpr long SECOND_NS = 1'000'000'000;
constexpr long FRAME_NS = SECOND_NS / 60;
constexpr std::uint32_t PIXEL_CLOCK_PS = 30'000;

constinit Next<int(int, unsigned long, void*)> nextIoctl("ioctl");
#if __TIMESIZE == 32
constinit Next<int(int, unsigned long, void*)> nextIoctlTime64("__ioctl_time64");
#endif

// The path of the framebuffer's file, empty without a virtual device.
struct FramebufferPath {
    char text[PATH_MAX + STATE_SUFFIX.size() + 1] = "";

    FramebufferPath() {
        if (mappedPath(std::getenv("VIRTUAL_DEVICE_ROOT"), FRAMEBUFFER, text, PATH_MAX) != PathKind::File)
            *text = '\0';
    }
    const char* ofState() {
        text[std::strlen(text) + STATE_SUFFIX.copy(text + std::strlen(text), STATE_SUFFIX.size())] = '\0';
        return text;
    }
};

bool isFramebuffer(int fd, const char* path) {
    struct stat64 opened;
    struct stat64 named;
    return fstat64(fd, &opened) == 0 && stat64(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

// Maps the state of a descriptor's framebuffer.
class MappedState {
public:
    explicit MappedState(int fd) {
        const int error = errno;
        FramebufferPath path;
        if (*path.text != '\0' && isFramebuffer(fd, path.text))
            map(path.ofState());
        errno = error;
    }
    ~MappedState() {
        if (state_ != nullptr)
            munmap(state_, sizeof *state_);
    }
    MappedState(const MappedState&) = delete;
    MappedState& operator=(const MappedState&) = delete;

    // Null for any other descriptor.
    ScreenState* get() { return state_; }

private:
    void map(const char* path) {
        const int fd = open(path, O_RDWR | O_CLOEXEC);
        struct stat64 status;
        if (fd < 0)
            return;
        if (fstat64(fd, &status) == 0 && status.st_size >= static_cast<off64_t>(sizeof *state_)) {
            void* const start = mmap64(nullptr, sizeof *state_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            state_ = start == MAP_FAILED ? nullptr : static_cast<ScreenState*>(start);
        }
        close(fd);
    }

    ScreenState* state_ = nullptr;
};

int refuse(int error) {
    errno = error;
    return -1;
}

// Blue in the lowest byte, then green, red and alpha.
void describePixels(fb_var_screeninfo& screen) {
    screen.blue = {0, 8, 0};
    screen.green = {8, 8, 0};
    screen.red = {16, 8, 0};
    screen.transp = {24, 8, 0};
}

int getScreen(const ScreenState& state, fb_var_screeninfo& screen) {
    screen = {};
    screen.xres = state.xres;
    screen.yres = state.yres;
    screen.xres_virtual = state.xresVirtual;
    screen.yres_virtual = state.yresVirtual;
    screen.bits_per_pixel = state.bitsPerPixel;
    screen.yoffset = state.yoffset;
    screen.pixclock = PIXEL_CLOCK_PS;
    describePixels(screen);
    return 0;
}

int getMemory(const ScreenState& state, fb_fix_screeninfo& memory) {
    memory = {};
    std::strcpy(memory.id, "virtual");
    memory.smem_len = state.smemLen;
    memory.type = FB_TYPE_PACKED_PIXELS;
    memory.visual = FB_VISUAL_TRUECOLOR;
    memory.ypanstep = 1;
    memory.line_length = state.xresVirtual * (state.bitsPerPixel / 8);
    return 0;
}

// The panel's size is fixed; the number of virtual rows is limited by the video memory.
int putScreen(ScreenState& state, const fb_var_screeninfo& screen) {
    const bool isSamePanel = screen.xres == state.xres && screen.yres == state.yres &&
                             screen.xres_virtual == state.xresVirtual &&
                             screen.bits_per_pixel == state.bitsPerPixel;
    const std::uint64_t row = std::uint64_t{screen.xres_virtual} * (screen.bits_per_pixel / 8);
    const bool fits = screen.yres_virtual >= screen.yres && row * screen.yres_virtual <= state.smemLen;
    if (!isSamePanel || !fits)
        return refuse(EINVAL);
    state.yresVirtual = screen.yres_virtual;
    return 0;
}

int pan(ScreenState& state, const fb_var_screeninfo& screen) {
    if (std::uint64_t{screen.yoffset} + state.yres > state.yresVirtual)
        return refuse(EINVAL);
    state.yoffset = screen.yoffset;
    return 0;
}

// The display begins a frame at each full sixtieth of a second of the monotonic clock. A signal ends the
// wait, as in a driver.
int waitForFrame() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_nsec = (time.tv_nsec / FRAME_NS + 1) * FRAME_NS;
    if (time.tv_nsec >= SECOND_NS) {
        ++time.tv_sec;
        time.tv_nsec = 0;
    }
    const int error = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
    return error == 0 ? 0 : refuse(error);
}

int answer(ScreenState& state, unsigned long request, void* argument) {
    if (argument == nullptr)
        return refuse(EFAULT);
    auto* const screen = static_cast<fb_var_screeninfo*>(argument);
    switch (request) {
    case FBIOGET_VSCREENINFO:
        return getScreen(state, *screen);
    case FBIOPUT_VSCREENINFO:
        return putScreen(state, *screen);
    case FBIOGET_FSCREENINFO:
        return getMemory(state, *static_cast<fb_fix_screeninfo*>(argument));
    case FBIOPAN_DISPLAY:
        return pan(state, *screen);
    case FBIO_WAITFORVSYNC:
        return waitForFrame();
    default:
        return refuse(EINVAL);
    }
}

// Every form of ioctl that the C library has comes here.
template <typename Original>
int ioctlMapped(int fd, unsigned long request, void* argument, Original& original) {
    if ((request >> 8 & 0xff) == FRAMEBUFFER_REQUESTS) {
        MappedState state(fd);
        if (state.get() != nullptr)
            return answer(*state.get(), request, argument);
    }
    return original(fd, request, argument);
}

} // namespace

INTERPOSED int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return ioctlMapped(fd, request, argument, nextIoctl);
}

#if __TIMESIZE == 32
// The form for programs with 64-bit times on a machine with 32-bit times.

extern "C" int __ioctl_time64(int fd, unsigned long request, ...) noexcept;

INTERPOSED int __ioctl_time64(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return ioctlMapped(fd, request, argument, nextIoctlTime64);
}
#endif
