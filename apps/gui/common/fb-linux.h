#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/fb.h>
#include <string>

/// A Linux framebuffer device, mapped into the process: to draw into, or to read what another process shows.
/// The video memory holds several buffers of the size of the screen, one below the other. One of them is on
/// display, and panning puts another one there at once:
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
/// What the device says of its geometry is not believed: a buffer that is not wholly inside the mapping has
/// no address, and nothing here reads or writes outside.
///
/// Failures throw std::runtime_error through throwErrorNumber with the text named, ": " and the reason.
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

    /// Opens the device and maps it; for drawing also sets the number of buffers up, puts buffer 0 on display
    /// and clears it. The mapping is writable in either mode. Throws "frambuffer open", "screen info",
    /// "vsync", "pan", "map framebuffer".
    void mapFramebuffer();

    /// Waits until the first display begins a new frame. Returns early when a signal comes. Throws "vsync".
    void waitVSync();

    /// Puts the back buffer on display and takes the next one as back buffer. Throws "pan", and when the
    /// object is for reading, "Not allowed in read only mode".
    void show();

    /// Zeroes the back buffer, as much of it as is inside the mapping. Throws "Not allowed in read only
    /// mode".
    void clear();

    /// The buffer to draw into next, and the one that show() has put on display last. Null when it is not
    /// inside the mapping.
    unsigned char* backbufferAddress() const;
    unsigned char* frontbufferAddress() const;

    /// The buffer that is on display now, whoever put it there. Null when it is not inside the mapping. The
    /// geometry is read anew for this and holds for the answer. Throws "screen info".
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
    int fd_ = -1;
    int buffers_ = 0;
    int index_ = 0; // of the back buffer
    bool isReadOnly_;
    fb_var_screeninfo screen_{};
    fb_fix_screeninfo memory_{};
    unsigned char* mapping_;
};
