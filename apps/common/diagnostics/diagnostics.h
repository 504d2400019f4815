#pragma once

#include "apps/common/diagnostics/loglevel.h"

#include <cstdarg>

/// Diagnostic lines and error exceptions.
///
/// Every line goes to the kernel log, /dev/kmsg, as one record:
///
///     |<- 20 ->|  |<- 12 ->|<- 20 ->|:|<- 4 ->| message \n
///      program     level    source     line
///
/// Program and source are right-aligned, the level is padded with blanks. The source column holds the file's
/// base name. Location and message together are cut at 511 characters. If the log cannot be written, the
/// reason goes to standard error as "FATAL: Logging: Write failed: <reason>" and not to the caller; the next
/// line opens the log again. All functions share one static buffer: they are for a single thread.

/// The component's threshold: lines below it are dropped. While it is null, until start-up has mapped the
/// memories, every line is written. It points into shared memory, so any process of the device can change it.
extern gen::LogLevel* gComponentLogLevel;

/// Writes a line unless `threshold` is non-null and `level` is below the value that it points to.
void logMessage(const gen::LogLevel* threshold, gen::LogLevel level, const char* file, int line,
                const char* format, ...) __attribute__((format(printf, 5, 6)));

/// The same with a ready argument list.
void logMessageIntern(const gen::LogLevel* threshold, gen::LogLevel level, const char* file, int line,
                      const char* format, va_list args) __attribute__((format(printf, 5, 0)));

/// Writes a line at level Error whatever the threshold is, and throws std::runtime_error. The exception's
/// text is the line's location column and message: "<source, 20 wide>:<line, 4 wide> <message>".
[[noreturn]] void throwError(const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/// throwError with the message "<text>: <text of errno>", for a system call that has just failed.
[[noreturn]] void throwErrorNumber(const char* file, int line, const char* text);

/// As throwErrorNumber, but the line is written at level LogLight: for a failure that is expected.
[[noreturn]] void throwErrorNumberInfo(const char* file, int line, const char* text);

/// Whether lines of this level pass the component's threshold.
inline bool isLogged(gen::LogLevel level) {
    return gComponentLogLevel == nullptr || level >= *gComponentLogLevel;
}

/// logMessage with the component's threshold and the location of the call: LOG_MESSAGE(Warn, "...", ...). The
/// arguments of a dropped line are not evaluated.
#define LOG_MESSAGE(level, ...)                                                                              \
    (isLogged(gen::LogLevel::level)                                                                          \
         ? logMessage(gComponentLogLevel, gen::LogLevel::level, __FILE__, __LINE__, __VA_ARGS__)             \
         : void())
