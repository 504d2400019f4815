#pragma once

#include "apps/common/files/descriptor.h"

#include <cstdint>
#include <linux/fb.h>
#include <string>

/// A Linux framebuffer device, mapped into the process for drawing or for reading what another process shows.
/// The video memory holds several buffers of the size of the screen, one below the other. One of them is on
/// display; panning displays another one:
///
///     mapping   address of buffer i = mapping + i * frameSize
///     |
///     +----------------+----------------+----------------+----------+
///     |    buffer 0    |    buffer 1    |    buffer 2    |  unused  |
///     +----------------+----------------+----------------+----------+
///     |<- frameSize -->|   ^ yoffset / yres is on display           |
///     |<------------------------- smem_len ------------------------>|
///
/// Rows lie xres * bytesPerPixel() apart.
///
/// The geometry that the device reports is not trusted: a buffer that is not entirely inside the mapping has
/// no address, and no function reads or writes outside the mapping.
///
/// Failures throw std::runtime_error through throwErrorNumber with the given text, ": " and the reason.
class FbLinux {
public:
    /// For drawing, with `buffers` buffers. Opens nothing yet.
    FbLinux(const std::string& path, int buffers);

    /// For reading. Opens nothing yet.
    explicit FbLinux(const std::string& path);

    /// Unmaps. The descriptor stays open until the process ends.
    virtual ~FbLinux();
    FbLinux(const FbLinux&) = delete;
    FbLinux& operator=(const FbLinux&) = delete;

    /// mapFramebuffer(). REQUIRES: called once.
    void init();

    /// Opens the device and maps it; for drawing also sets the number of buffers, displays buffer 0 and
    /// clears it. The mapping is writable in both modes. Throws "frambuffer open", "screen info",
    /// "vsync", "pan", "map framebuffer".
    void mapFramebuffer();

    /// Waits until the first display begins a new frame. A signal ends the wait early. Throws "vsync".
    void waitVSync();

    /// Displays the back buffer and makes the next one the back buffer. Throws "pan"; if the object is for
    /// reading, "Not allowed in read only mode".
    void show();

    /// Zeroes the part of the back buffer that is inside the mapping. Throws "Not allowed in read only
    /// mode".
    void clear();

    /// The buffer to draw into next, and the one that show() displayed last. Null if it is not inside the
    /// mapping.
    unsigned char* backbufferAddress() const;
    unsigned char* frontbufferAddress() const;

    /// The buffer that is on display now, whichever process panned it. Reads the geometry again. Null if the
    /// buffer is not inside the mapping. Throws "screen info".
    unsigned char* currentAddress();

    std::uint32_t width() const { return screen_.xres; }
    std::uint32_t height() const { return screen_.yres; }
    std::uint32_t bitsPerPixel() const { return screen_.bits_per_pixel; }

    /// Bytes from one row to the next.
    std::uint64_t rowSize() const;

private:
    void openDevice();
    void readScreenInfo();
    void setBuffers();
    void pan();
    void logGeometry() const;
    void map();
    void requireWritable(int line) const;

    std::uint64_t bytesPerPixel() const;
    std::uint64_t frameSize() const;
    std::uint64_t usableSize() const;
    unsigned char* bufferAddress(std::int64_t index) const;

    std::string path_;
    Descriptor fd_;
    int buffers_ = 0;
    int index_ = 0; // of the back buffer
    bool isReadOnly_;
    fb_var_screeninfo screen_{};
    fb_fix_screeninfo memory_{};
    unsigned char* mapping_;
};
