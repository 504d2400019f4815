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

// A level from shared memory can have any value: one that is no entry gets the nearest label.
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

// Constant initialisation and no destruction: lines may be written before main and after it.
union ProcessWriter {
    constexpr ProcessWriter() : writer("/dev/kmsg") {}
    ~ProcessWriter() {}

    LogWriter writer;
};
constinit ProcessWriter gProcessWriter;

} // namespace

LogWriter& logWriter() {
    return gProcessWriter.writer;
}

void LogWriter::open() {
    file_ = Descriptor(::open(device_, O_WRONLY | O_CLOEXEC));
    std::snprintf(program_, sizeof program_, "%20.20s  ", program_invocation_short_name);
}

void LogWriter::compose(const char* file, int line, const char* format, va_list args) {
    const int location = std::snprintf(text_, TEXT_SIZE, "%20s:%4i ", baseName(file), line);
    const std::size_t used = std::min(static_cast<std::size_t>(std::max(location, 0)), TEXT_SIZE - 1);
    if (std::vsnprintf(text_ + used, TEXT_SIZE - used, format, args) < 0)
        text_[used] = '\0'; // the format is wrong: only the location is written
}

void LogWriter::write(gen::LogLevel level, const char* file, int line, const char* format, va_list args) {
    if (!file_.isOpen())
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
        written = ::writev(file_.get(), record, 4);
    } while (written < 0 && errno == EINTR);
    if (written < 0)
        std::fprintf(stderr, "FATAL: Logging: Write failed: %s\n", std::strerror(errno));
}

void LogWriter::setDevice(const char* device) {
    file_.close();
    device_ = device;
}
