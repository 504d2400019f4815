#pragma once

#include "apps/common/files/descriptor.h"
#include "apps/libs/lhwinfo/checksum.h"

#include <gtest/gtest.h>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/mman.h>

/// A file in memory that is opened like a device. Zero at first, up to its size.
class Image {
public:
    explicit Image(std::size_t size) : size_(size) {
        EXPECT_EQ(ftruncate(fd_.get(), static_cast<off_t>(size)), 0);
        bytes_ = static_cast<char*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0));
    }
    ~Image() { munmap(bytes_, size_); }

    const char* path() const { return path_.c_str(); }
    const char* at(std::size_t position) const { return bytes_ + position; }
    std::string read(std::size_t position, std::size_t size) const { return {at(position), size}; }
    void write(std::size_t position, const std::string& bytes) {
        bytes.copy(bytes_ + position, bytes.size());
    }

private:
    std::size_t size_;
    Descriptor fd_{memfd_create("image", MFD_CLOEXEC)};
    std::string path_ = "/proc/self/fd/" + std::to_string(fd_.get());
    char* bytes_;
};

/// The bytes of a number.
inline std::string word(std::uint32_t number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

/// A block of `length` bytes with a matching header; `data` is filled up with zero bytes.
inline std::string validBlock(std::uint32_t version, std::uint32_t length, std::string data) {
    data.resize(length - 12);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(data.data());
    return word(version) + word(length) + word(crc32Mpeg2(bytes, length - 12)) + data;
}

/// The text that `print` writes to std::cout.
template <typename Print>
std::string printedBy(Print print) {
    std::ostringstream text;
    std::streambuf* const output = std::cout.rdbuf(text.rdbuf());
    print();
    std::cout.rdbuf(output);
    return text.str();
}
