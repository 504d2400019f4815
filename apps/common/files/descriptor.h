#pragma once

#include <unistd.h>
#include <utility>

/// Owns a file descriptor and closes it.
class Descriptor {
public:
    constexpr Descriptor() = default;
    /// Takes over `fd`; a negative one means that nothing is open.
    constexpr explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }

    /// Gives up ownership: returns the descriptor, which stays open.
    int release() { return std::exchange(fd_, -1); }

    /// Returns the result of ::close, with the reason in errno, or a negative value when nothing is open.
    int close() { return isOpen() ? ::close(std::exchange(fd_, -1)) : fd_; }

private:
    int fd_ = -1;
};
