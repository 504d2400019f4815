#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

/// A file in memory that stands for a device. Zero at first, up to its size.
class Image {
public:
    explicit Image(off_t size) { EXPECT_EQ(ftruncate(fd_, size), 0); }
    ~Image() { close(fd_); }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    int fd() const { return fd_; }
    const char* path() const { return path_.c_str(); }

    std::string read(off_t at, std::size_t size) const {
        std::string bytes(size, '?');
        EXPECT_EQ(pread(fd_, bytes.data(), size, at), static_cast<ssize_t>(size));
        return bytes;
    }
    void write(off_t at, const std::string& bytes) const {
        EXPECT_EQ(pwrite(fd_, bytes.data(), bytes.size(), at), static_cast<ssize_t>(bytes.size()));
    }

private:
    int fd_ = memfd_create("image", MFD_CLOEXEC);
    std::string path_ = "/proc/self/fd/" + std::to_string(fd_);
};

/// The bytes of a number, least significant first.
inline std::string word(std::uint32_t number) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>(number >> shift));
    return bytes;
}

/// The checksum of a block's bytes behind its header, bit by bit.
inline std::uint32_t checksumOf(const std::string& bytes) {
    std::uint32_t sum = 0xFFFFFFFF;
    for (const char byte : bytes) {
        sum ^= std::uint32_t{static_cast<unsigned char>(byte)} << 24;
        for (int bit = 0; bit < 8; ++bit)
            sum = (sum & 0x80000000) != 0 ? (sum << 1) ^ 0x04C11DB7 : sum << 1;
    }
    return sum;
}

/// A block of `length` bytes with a header that matches; `data` is filled up with zero bytes.
inline std::string validBlock(std::uint32_t version, std::uint32_t length, std::string data) {
    data.resize(length - 12);
    return word(version) + word(length) + word(checksumOf(data)) + data;
}
