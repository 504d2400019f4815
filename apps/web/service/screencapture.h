#pragma once

#include "apps/gui/common/fb-linux.h"

#include <iosfwd>

/// Takes pictures of the device's display, as PNG images with red, green, blue and alpha of 8 bits each. The
/// display is another process's: this one only reads what is on the screen.
///
/// The rows are encoded from the video memory itself, and each encoded piece goes into the stream at once:
/// what a picture takes is the encoder's own working memory and one pointer per row. A display that draws
/// into the buffer on the screen, or comes round to it again before its picture is finished, gets a picture
/// of both frames.
class ScreenCapture : public FbLinux {
public:
    /// Opens and maps /dev/fb0 for reading. Throws what FbLinux::init throws.
    ScreenCapture();

    /// Encodes what is on the screen now into `out`. A stream that takes no more is not looked at.
    ///
    /// Throws through throwError, with what has been encoded until then left in `out`:
    ///
    ///     "PNG: create write struct error"   no memory for the encoder
    ///     "PNG: create info error"           the same
    ///     "PNG: init io error"               never expected
    ///     "PNG: write info error"            a width or height of zero or beyond a million, or `out` throws
    ///     "PNG: write image error"           a screen that is not of 32 bits per pixel or not wholly in the
    ///                                        video memory, or `out` throws
    ///
    /// and, when the screen's geometry cannot be read, "screen info: <reason>".
    void startWrite(std::ostream& out);

    /// Writes encoded bytes to the stream of the picture that is being taken; without one, does nothing.
    void write(const unsigned char* data, unsigned int length);

private:
    std::ostream* out_ = nullptr; // not owned; null while no picture is taken
};

/// Takes a picture, as ScreenCapture::startWrite does.
std::ostream& operator<<(std::ostream& out, ScreenCapture& capture);
