#pragma once

#include "apps/gui/common/fb-linux.h"

#include <iosfwd>

/// Takes pictures of the device's display, as PNG images with red, green, blue and alpha of 8 bits each.
/// Another process draws the display; this one only reads it.
///
/// The rows are encoded directly from the video memory, and each encoded piece is written to the stream at
/// once: a picture needs the encoder's working memory and one pointer per row. When the display process draws
/// into the buffer while it is encoded, the picture shows parts of both frames.
class ScreenCapture : public FbLinux {
public:
    /// Opens and maps /dev/fb0 for reading. Throws what FbLinux::init throws.
    ScreenCapture();

    /// Encodes the screen's present content into `out`, whose state is not checked.
    ///
    /// Throws through throwError, with the bytes encoded so far in `out`:
    ///
    ///     "PNG: create write struct error"   no memory for the encoder
    ///     "PNG: create info error"           the same
    ///     "PNG: init io error"               never expected
    ///     "PNG: write info error"            a width or height of zero or beyond a million, or `out` throws
    ///     "PNG: write image error"           the screen has not 32 bits per pixel or exceeds the video
    ///     memory,
    ///                                        or `out` throws
    ///
    /// and, when the screen's geometry cannot be read, "screen info: <reason>".
    void startWrite(std::ostream& out);

    /// Writes encoded bytes to the stream of the present startWrite; otherwise does nothing.
    void write(const unsigned char* data, unsigned int length);

private:
    std::ostream* out_ = nullptr; // not owned; null while no picture is taken
};

/// Takes a picture, as ScreenCapture::startWrite does.
std::ostream& operator<<(std::ostream& out, ScreenCapture& capture);
