#pragma once

#include "apps/common/diagnostics/loglevel.h"
#include "apps/common/files/descriptor.h"

#include <cstdarg>
#include <cstddef>

/// Writes diagnostic lines to one device, each with a single gather write, so that the device receives it as
/// one record even if other processes write at the same time:
///
///     gather element   0                1        2                                           3
///                      +----------------+--------+-------------------------------------------+----+
///                      | program, 2 bl. | level  | source : line   message                   | \n |
///                      +----------------+--------+-------------------------------------------+----+
///     bytes            22               12       at most 511, kept until the next line       1
///
/// The device is opened, close-on-exec, with the first line, and again with every line while that fails.
class LogWriter {
public:
    /// Opens nothing yet. `device` must live as long as the writer uses it.
    constexpr explicit LogWriter(const char* device) : device_(device) {}

    /// Composes a line and writes it. If that fails, writes "FATAL: Logging: Write failed: <reason>" to
    /// standard error and returns.
    void write(gen::LogLevel level, const char* file, int line, const char* format, va_list args)
        __attribute__((format(printf, 5, 0)));

    /// Location column and message of the last line, without its newline.
    const char* text() const { return text_; }

    /// Sends the following lines to another device or file, which must exist. `device` as for the
    /// constructor.
    void setDevice(const char* device);

private:
    void open();
    void compose(const char* file, int line, const char* format, va_list args)
        __attribute__((format(printf, 4, 0)));

    static constexpr std::size_t PROGRAM_COLUMN = 22;
    static constexpr std::size_t TEXT_SIZE = 512;

    const char* device_;
    Descriptor file_;
    char program_[PROGRAM_COLUMN + 1] = {};
    char text_[TEXT_SIZE] = {};
};

/// The process's writer, which all functions of diagnostics.h use. It writes to the kernel log, /dev/kmsg,
/// before, in and after main: it is never destroyed, because static objects write lines in their destructors.
LogWriter& logWriter();
