#pragma once

#include "apps/common/diagnostics/logwriter.h"
#include "apps/common/files/descriptor.h"

#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

/// Takes the process's diagnostic lines in place of the kernel log.
class LogCapture {
public:
    LogCapture() { logWriter().setDevice(device_.c_str()); }
    ~LogCapture() { logWriter().setDevice("/dev/kmsg"); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The lines, at most 64 KiB.
    std::string text() const {
        std::string bytes(65536, '\0');
        const ssize_t size = pread(file_.get(), bytes.data(), bytes.size(), 0);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return bytes;
    }

    /// The lines as "<level> <message>". REQUIRES: source names of at most 20 characters, lines below 10000.
    std::vector<std::string> messages() const {
        constexpr std::size_t LEVEL = 22;
        constexpr std::size_t MESSAGE = LEVEL + 12 + 20 + 1 + 4 + 1;
        std::vector<std::string> result;
        std::istringstream lines(text());
        for (std::string line; std::getline(lines, line);)
            result.push_back(line.substr(LEVEL, line.find(' ', LEVEL) - LEVEL) + " " + line.substr(MESSAGE));
        return result;
    }

private:
    const Descriptor file_{memfd_create("log", MFD_CLOEXEC)};
    const std::string device_ = "/proc/self/fd/" + std::to_string(file_.get());
};

/// The text of the std::runtime_error that leaves `function`.
template <typename Function>
std::string textThrownBy(Function function) {
    try {
        function();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing thrown";
}
