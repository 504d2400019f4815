#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// Turns the colour escapes of a terminal text into HTML spans, read by read. An escape sequence may be
/// spread over several reads. What becomes of
///
///     ESC [ <number> m    30-37, 40-47, 90-97, 100-107: "<span style='color: #AA0000'>" and the like
///                         0 or none: "</span>"; any other: "<span style=''>"
///     ESC [ <number> ?    nothing, and the text goes on behind it: "ESC[1;32m" leaves "32m"
///     anything else       itself, HTML's own characters included
///
/// Only the escape byte itself is looked at: the byte behind it is skipped whatever it is, even if it comes
/// with the next read, which then begins with the rest of the sequence as text. A zero byte hides the rest of
/// its read.
class ColourSpans {
public:
    /// Bytes that one read takes at most.
    static constexpr std::size_t READ_SIZE = 256;

    /// A read and the zero byte behind it:
    ///
    ///     0                     count         256
    ///     +---------------------+---+----------+---+
    ///     |        read         | 0 |  before  | 0 |
    ///     +---------------------+---+----------+---+
    ///
    /// To be zeroed once, then handed to read after read: behind a short read stands what came before, and an
    /// escape that ends the read skips into it.
    using Buffer = std::array<char, READ_SIZE + 1>;

    /// Converts the first `count` bytes of `buffer`, or up to the first zero byte, and appends the result to
    /// `text`. The escape bytes in `buffer` become zero. A negative count stands for a read that failed: what
    /// the buffer still holds is converted again, up to the zero that was the first escape. Nothing outside
    /// the buffer is touched, whatever the count is.
    void convert(Buffer& buffer, std::ptrdiff_t count, std::string& text);

    /// Six hexadecimal digits, red, green, blue: `on` for each of the bits 0, 1, 2 that `colour` has, else
    /// `off`.
    static std::string getColor(unsigned int colour, const char* on, const char* off);

private:
    bool openSequence(Buffer& buffer, std::size_t& cursor, std::string& text);
    bool closeSequence(const Buffer& buffer, std::size_t& cursor, std::string& text);

    bool pending_ = false;   // a sequence is open
    std::uint32_t code_ = 0; // its number so far, modulo 2^32
};
