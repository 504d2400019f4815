#pragma once

#include "apps/common/files/descriptor.h"
#include "device/preload/screenstate.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>

/// A framebuffer at /dev/fb0 for a test program that is linked with the preload library: three buffers, of
/// which the first is on display. One exists at a time.
class VirtualScreen {
public:
    VirtualScreen(std::uint32_t width, std::uint32_t height) : frameSize_(std::size_t{width} * height * 4) {
        state_->xresVirtual = width;
        state_->yresVirtual = 3 * height;
        state_->smemLen = static_cast<std::uint32_t>(3 * frameSize_);
        setGeometry(width, height, 32, 0);
        setenv("VIRTUAL_DEVICE_ROOT", root_.c_str(), 1);
    }
    ~VirtualScreen() {
        unsetenv("VIRTUAL_DEVICE_ROOT");
        munmap(pixels_, 3 * frameSize_);
        munmap(state_, sizeof(ScreenState));
        std::filesystem::remove_all(root_);
    }
    VirtualScreen(const VirtualScreen&) = delete;
    VirtualScreen& operator=(const VirtualScreen&) = delete;

    ScreenState& state() { return *state_; }

    /// Takes any numbers.
    void setGeometry(std::uint32_t xres, std::uint32_t yres, std::uint32_t bits, std::uint32_t yoffset) {
        state_->xres = xres;
        state_->yres = yres;
        state_->bitsPerPixel = bits;
        state_->yoffset = yoffset;
    }

    unsigned char* buffer(std::size_t index) { return pixels_ + index * frameSize_; }
    std::string path(const std::string& devicePath) const { return root_ + devicePath; }

    /// Fills a buffer with bytes that differ between pixels and between seeds.
    void paint(std::size_t index, std::uint32_t seed) {
        std::uint32_t number = seed * 2654435761U + 1;
        for (unsigned char* byte = buffer(index); byte != buffer(index + 1); ++byte) {
            number = number * 1664525U + 1013904223U;
            *byte = static_cast<unsigned char>(number >> 24);
        }
    }

private:
    void* map(const std::string& devicePath, std::size_t size) {
        std::filesystem::create_directories(root_ + "/dev");
        const Descriptor file(open(path(devicePath).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(size)), 0);
        return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    }

    char folder_[20] = "/tmp/screen-XXXXXX";
    const std::string root_ = mkdtemp(folder_);
    std::size_t frameSize_;
    unsigned char* pixels_ = static_cast<unsigned char*>(map("/dev/fb0", 3 * frameSize_));
    ScreenState* state_ = static_cast<ScreenState*>(map("/dev/fb0.state", sizeof(ScreenState)));
};
