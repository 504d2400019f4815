#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Writes what standard output has buffered. Returns false if the reader of a pipe has closed it, which ends
/// a command without a message. Throws std::runtime_error if something could not be written, also earlier.
bool flushOutput();

/// Lines for standard output. They do not wait for a reader such as a pager: a process that does not receive
/// the broker's events could make the broker wait, and with it the device.
class PatientOutput {
public:
    /// Bytes that wait for a reader. Further lines are dropped.
    static constexpr std::size_t LIMIT = 8U << 20U;

    void add(std::string_view line);

    /// Writes what the reader takes now. Returns and throws as flushOutput.
    bool flush() { return write(0); }

    /// Writes the rest, waits for the reader, and reports dropped lines on standard error. Throws as
    /// flushOutput.
    void finish();

    bool isWaiting() const { return written_ < text_.size(); }

private:
    bool write(int patienceMs);
    void writePiece();

    std::string text_;
    std::size_t written_ = 0; // bytes of text_
    unsigned long dropped_ = 0;
};
