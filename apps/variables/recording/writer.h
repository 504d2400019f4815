#pragma once

#include "apps/variables/recording/backgroundfile.h"
#include "apps/variables/recording/format.h"

#include <chrono>
#include <vector>

namespace recording {

/// Writes a recording (format.h). A write that fails lets a later operation throw std::runtime_error
/// "<path>: <reason>"; the file is a recording up to its last whole frame.
class Writer {
public:
    /// Creates or truncates the file and writes the description with the time `started` (RFC 3339).
    /// The variables get the numbers 0, 1, 2...
    Writer(const std::string& path, std::vector<VariableId> variables, const std::string& started);

    /// Reads all variables from the memories and writes the start values.
    void start();

    /// Keeps an entry for the next flush: reads the variable from its memory. REQUIRES: start was called.
    void add(std::chrono::microseconds sinceStart, std::size_t number, const Notify& event);

    /// Writes the kept entries as one frame, if there are any.
    void flush();

    /// Returns when the file is on the disk. REQUIRES: no later operation.
    void sync();

    /// Bytes of the file.
    std::uint64_t size() const { return size_; }

private:
    void writeFrame(std::string_view content);
    void write(std::string_view bytes);
    [[noreturn]] void fail() const;

    std::string path_;
    BackgroundFile file_;
    std::vector<VariableId> variables_;
    std::vector<std::string> values_; // as recorded
    std::string entries_;
    std::chrono::microseconds time_{0}; // of the last entry
    std::size_t number_ = 0;            // of its variable
    std::uint64_t size_ = 0;
};

} // namespace recording
