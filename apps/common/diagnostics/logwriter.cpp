#include "apps/common/diagnostics/logwriter.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr std::size_t LEVEL_COLUMN = 12;
constexpr int LEVEL_COUNT = 8;
constexpr const char* LEVEL_LABELS[LEVEL_COUNT] = {
    "DebugAll    ", "DebugMost   ", "DebugLight  ", "LogAll      ",
    "LogMost     ", "LogLight    ", "Warn        ", "Error       ",
};

// A level may have been read from shared memory: one that is no entry shows at the nearest.
const char* levelLabel(gen::LogLevel level) {
    return LEVEL_LABELS[std::clamp(static_cast<int>(level), 0, LEVEL_COUNT - 1)];
}

const char* baseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

iovec gather(const char* data, std::size_t size) {
    return {const_cast<char*>(data), size};
}

// Constant initialisation and no destructor: lines may be written before main and after it.
constinit LogWriter gLogWriter("/dev/kmsg");

} // namespace

LogWriter& logWriter() {
    return gLogWriter;
}

void LogWriter::open() {
    fd_ = ::open(device_, O_WRONLY | O_CLOEXEC);
    std::snprintf(program_, sizeof program_, "%20.20s  ", program_invocation_short_name);
}

void LogWriter::compose(const char* file, int line, const char* format, va_list args) {
    const int location = std::snprintf(text_, TEXT_SIZE, "%20s:%4i ", baseName(file), line);
    const std::size_t used = std::min(static_cast<std::size_t>(std::max(location, 0)), TEXT_SIZE - 1);
    if (std::vsnprintf(text_ + used, TEXT_SIZE - used, format, args) < 0)
        text_[used] = '\0'; // the message cannot be formatted: its place in the source still tells something
}

void LogWriter::write(gen::LogLevel level, const char* file, int line, const char* format, va_list args) {
    if (fd_ < 0)
        open();
    compose(file, line, format, args);
    const iovec record[] = {
        gather(program_, PROGRAM_COLUMN),
        gather(levelLabel(level), LEVEL_COLUMN),
        gather(text_, std::strlen(text_)),
        gather("\n", 1),
    };
    ssize_t written;
    do {
        written = ::writev(fd_, record, 4);
    } while (written < 0 && errno == EINTR); // nothing was written: the line is not lost to a signal
    if (written < 0)
        std::fprintf(stderr, "FATAL: Logging: Write failed: %s\n", std::strerror(errno));
}

void LogWriter::setDevice(const char* device) {
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    device_ = device;
}
