#include "apps/common/diagnostics/diagnostics.h"

#include "apps/common/diagnostics/logwriter.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

gen::LogLevel* gComponentLogLevel = nullptr;

namespace {

void writeLine(gen::LogLevel level, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

void writeLine(gen::LogLevel level, const char* file, int line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logWriter().write(level, file, line, format, args);
    va_end(args);
}

// The text includes the location, which log lines and answers then show.
[[noreturn]] void throwLine() {
    throw std::runtime_error(logWriter().text());
}

} // namespace

void logMessage(const gen::LogLevel* threshold, gen::LogLevel level, const char* file, int line,
                const char* format, ...) {
    va_list args;
    va_start(args, format);
    logMessageIntern(threshold, level, file, line, format, args);
    va_end(args);
}

void logMessageIntern(const gen::LogLevel* threshold, gen::LogLevel level, const char* file, int line,
                      const char* format, va_list args) {
    if (threshold != nullptr && level < *threshold)
        return;
    logWriter().write(level, file, line, format, args);
}

void throwError(const char* file, int line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logWriter().write(gen::LogLevel::Error, file, line, format, args);
    va_end(args);
    throwLine();
}

void throwErrorNumber(const char* file, int line, const char* text) {
    const char* reason = std::strerror(errno);
    writeLine(gen::LogLevel::Error, file, line, "%s: %s", text, reason);
    throwLine();
}

void throwErrorNumberInfo(const char* file, int line, const char* text) {
    const char* reason = std::strerror(errno);
    writeLine(gen::LogLevel::LogLight, file, line, "%s: %s", text, reason);
    throwLine();
}
