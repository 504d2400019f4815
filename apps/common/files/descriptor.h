#pragma once

#include <unistd.h>
#include <utility>

/// Owns a file descriptor and closes it.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }

    /// Closing what is not open does nothing.
    void close() {
        if (isOpen())
            ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};
