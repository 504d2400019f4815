#include "device/preload/faultswitches.h"
#include "device/preload/preload.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// The wrappers of the functions that fail when a switch is on: those that the service calls. While all
// switches are off, a wrapper costs a comparison.

namespace {

constexpr std::size_t RECORD = 12; // bytes of an event

constinit Next<ssize_t(int, void*, std::size_t)> nextRead("read");
constinit Next<ssize_t(int, void*, std::size_t, int)> nextRecv("recv");
constinit Next<ssize_t(int, const void*, std::size_t)> nextWrite("write");
constinit Next<ssize_t(int, const iovec*, int)> nextWritev("writev");
constinit Next<int(int, sockaddr*, socklen_t*, int)> nextAccept4("accept4");
constinit Next<int(int, int, int)> nextSocket("socket");
constinit Next<int(int*, int)> nextPipe2("pipe2");
constinit Next<int(clockid_t, timespec*)> nextClockGettime("clock_gettime");
constinit Next<time_t(time_t*)> nextTime("time");
#if __TIMESIZE == 32
constinit Next<int(clockid_t, void*)> nextClockGettime64("__clock_gettime64");
constinit Next<std::int64_t(std::int64_t*)> nextTime64("__time64");
#endif

std::atomic<FaultSwitches*> switches{nullptr};

// Runs before main, and after the wrappers' first calls.
[[gnu::constructor]] void mapSwitches() {
    const char* const path = std::getenv("VIRTUAL_DEVICE_FAULTS");
    const int fd = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    void* const start = mmap64(nullptr, sizeof(FaultSwitches), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (start != MAP_FAILED)
        switches = static_cast<FaultSwitches*>(start);
    unsetenv("VIRTUAL_DEVICE_FAULTS");
}

// The value of a switch, 0 if it is off.
std::uint32_t valueOf(FaultSwitches::Word FaultSwitches::*word) {
    const FaultSwitches* const all = switches.load(std::memory_order_relaxed);
    return all == nullptr ? 0 : (all->*word).load(std::memory_order_relaxed);
}

bool isUnixSocket(int fd) {
    int family = 0;
    socklen_t size = sizeof family;
    return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &family, &size) == 0 && family == AF_UNIX;
}

// The broker sends whole records, and readers rely on it: a Unix socket gives at least one.
std::size_t readable(int fd, std::size_t size) {
    const std::size_t most = valueOf(&FaultSwitches::readBytes);
    if (most == 0)
        return size;
    return std::min(size, isUnixSocket(fd) ? std::max(most / RECORD, std::size_t{1}) * RECORD : most);
}

// The library opens the kernel log for appending, and nothing else is opened so.
bool isOnFullDisk(int fd) {
    if (valueOf(&FaultSwitches::fullDisk) == 0)
        return false;
    struct stat64 status;
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || (flags & O_APPEND) != 0 || fstat64(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    errno = ENOSPC;
    return true;
}

std::int32_t clockStep(clockid_t clock) {
    const bool isWallClock = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    return isWallClock ? static_cast<std::int32_t>(valueOf(&FaultSwitches::clockStepS)) : 0;
}

} // namespace

bool refusesDescriptor() {
    const std::uint32_t limit = valueOf(&FaultSwitches::descriptors);
    if (limit == 0)
        return false;
    const int lowest = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    if (lowest >= 0)
        close(lowest);
    if (lowest >= 0 && static_cast<std::uint32_t>(lowest) < limit)
        return false;
    errno = EMFILE;
    return true;
}

INTERPOSED ssize_t read(int fd, void* bytes, std::size_t size) {
    return nextRead(fd, bytes, readable(fd, size));
}

INTERPOSED ssize_t recv(int fd, void* bytes, std::size_t size, int flags) {
    return nextRecv(fd, bytes, readable(fd, size), flags);
}

INTERPOSED ssize_t write(int fd, const void* bytes, std::size_t size) {
    return isOnFullDisk(fd) ? -1 : nextWrite(fd, bytes, size);
}

INTERPOSED ssize_t writev(int fd, const iovec* pieces, int count) {
    return isOnFullDisk(fd) ? -1 : nextWritev(fd, pieces, count);
}

INTERPOSED int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    return refusesDescriptor() ? -1 : nextAccept4(fd, address, length, flags);
}

INTERPOSED int socket(int family, int type, int protocol) noexcept {
    return refusesDescriptor() ? -1 : nextSocket(family, type, protocol);
}

INTERPOSED int pipe2(int* ends, int flags) noexcept {
    return refusesDescriptor() ? -1 : nextPipe2(ends, flags);
}

INTERPOSED int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const int result = nextClockGettime(clock, time);
    if (result == 0)
        time->tv_sec += clockStep(clock);
    return result;
}

INTERPOSED time_t time(time_t* result) noexcept {
    const time_t now = nextTime(nullptr) + clockStep(CLOCK_REALTIME);
    if (result != nullptr)
        *result = now;
    return now;
}

#if __TIMESIZE == 32
// The forms for programs with 64-bit times. Their structure begins with the seconds, in 64 bits.

extern "C" int __clock_gettime64(clockid_t clock, void* time) noexcept;
extern "C" std::int64_t __time64(std::int64_t* result) noexcept;

INTERPOSED int __clock_gettime64(clockid_t clock, void* time) noexcept {
    const int result = nextClockGettime64(clock, time);
    if (result == 0)
        *static_cast<std::int64_t*>(time) += clockStep(clock);
    return result;
}

INTERPOSED std::int64_t __time64(std::int64_t* result) noexcept {
    const std::int64_t now = nextTime64(nullptr) + clockStep(CLOCK_REALTIME);
    if (result != nullptr)
        *result = now;
    return now;
}
#endif
