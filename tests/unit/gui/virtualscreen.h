#pragma once

#include "device/preload/screenstate.h"

#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

/// A framebuffer at /dev/fb0 for a test program that is linked with the preload library: three buffers, of
/// which the first is on display. One exists at a time.
class VirtualScreen {
public:
    static constexpr std::uint32_t BUFFERS = 3;

    VirtualScreen(std::uint32_t width, std::uint32_t height)
        : frameSize_(std::size_t{width} * height * 4), size_(BUFFERS * frameSize_) {
        std::filesystem::create_directories(root_ + "/dev");
        pixels_ = map<unsigned char>("/dev/fb0", size_);
        state_ = map<ScreenState>("/dev/fb0.state", sizeof(ScreenState));
        state_->xres = state_->xresVirtual = width;
        state_->yres = height;
        state_->yresVirtual = BUFFERS * height;
        state_->bitsPerPixel = 32;
        state_->smemLen = static_cast<std::uint32_t>(size_);
        setenv("VIRTUAL_DEVICE_ROOT", root_.c_str(), 1);
    }
    ~VirtualScreen() {
        unsetenv("VIRTUAL_DEVICE_ROOT");
        munmap(pixels_, size_);
        munmap(state_, sizeof(ScreenState));
        std::filesystem::remove_all(root_);
    }
    VirtualScreen(const VirtualScreen&) = delete;
    VirtualScreen& operator=(const VirtualScreen&) = delete;

    /// What it is set to; any numbers may be written.
    ScreenState& state() { return *state_; }

    unsigned char* buffer(std::size_t index) { return pixels_ + index * frameSize_; }
    std::size_t frameSize() const { return frameSize_; }
    std::string path(const std::string& devicePath) const { return root_ + devicePath; }

    /// Fills a buffer with bytes that differ from pixel to pixel and from `seed` to `seed`.
    void paint(std::size_t index, std::uint32_t seed) {
        std::uint32_t number = seed * 2654435761U + 1;
        for (std::size_t i = 0; i < frameSize_; ++i) {
            number = number * 1664525U + 1013904223U;
            buffer(index)[i] = static_cast<unsigned char>(number >> 24);
        }
    }

private:
    template <typename Content>
    Content* map(const std::string& devicePath, std::size_t size) {
        const int fd = ::open(path(devicePath).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
        void* const start = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        EXPECT_NE(start, MAP_FAILED);
        close(fd);
        return static_cast<Content*>(start);
    }

    char folder_[20] = "/tmp/screen-XXXXXX";
    const std::string root_ = mkdtemp(folder_);
    std::size_t frameSize_;
    std::size_t size_;
    unsigned char* pixels_;
    ScreenState* state_;
};
