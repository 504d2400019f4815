#pragma once

#include "apps/common/diagnostics/logwriter.h"

#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

/// Takes the process's diagnostic lines as long as it lives, in place of the kernel log.
class LogCapture {
public:
    LogCapture() : fd_(memfd_create("log", MFD_CLOEXEC)), device_("/proc/self/fd/" + std::to_string(fd_)) {
        logWriter().setDevice(device_.c_str());
    }
    ~LogCapture() {
        logWriter().setDevice("/dev/kmsg");
        close(fd_);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All that was written, at most 64 KiB.
    std::string text() const {
        std::string bytes(65536, '\0');
        const ssize_t size = pread(fd_, bytes.data(), bytes.size(), 0);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return bytes;
    }

    /// The lines as "<level> <message>", for sources whose names take 20 columns at most and lines below
    /// 10000.
    std::vector<std::string> messages() const {
        constexpr std::size_t PROGRAM = 22;
        constexpr std::size_t HEAD = PROGRAM + 12 + 20 + 1 + 4 + 1;
        std::vector<std::string> result;
        const std::string all = text();
        for (std::size_t start = 0, end; (end = all.find('\n', start)) != std::string::npos;
             start = end + 1) {
            const std::string level = all.substr(start + PROGRAM, 12);
            const std::string message = all.substr(start + HEAD, end - start - HEAD);
            result.push_back(level.substr(0, level.find(' ')) + " " + message);
        }
        return result;
    }

private:
    int fd_;
    std::string device_;
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
