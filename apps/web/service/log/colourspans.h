#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// Converts the colour escapes of a terminal text into HTML spans, read by read. An escape sequence may be
/// spread over several reads. The results:
///
///     ESC [ <number> m    30-37, 40-47, 90-97, 100-107: "<span style='color: #AA0000'>" and the like
///                         0 or none: "</span>"; any other: "<span style=''>"
///     ESC [ <number> ?    nothing, and the text goes on behind it: "ESC[1;32m" leaves "32m"
///     other text          unchanged, without HTML escaping
///
/// The byte after the escape byte is skipped without being checked. When a read ends with the escape byte,
/// the next read begins with the rest of the sequence as text. A zero byte hides the rest of its read.
class ColourSpans {
public:
    /// Most bytes of one read.
    static constexpr std::size_t READ_SIZE = 256;

    /// A read and the zero byte behind it:
    ///
    ///     0                     count         256
    ///     +---------------------+---+----------+---+
    ///     |        read         | 0 |  before  | 0 |
    ///     +---------------------+---+----------+---+
    ///
    /// To be zeroed once and used for all reads of one event: a short read leaves bytes of the previous one
    /// behind it, and an escape byte at its end skips into them.
    using Buffer = std::array<char, READ_SIZE + 1>;

    /// Converts the first `count` bytes of `buffer`, or up to the first zero byte, and appends the result to
    /// `text`. The escape bytes in `buffer` become zero. A negative count means a failed read: the buffer's
    /// bytes are converted again, up to the zero that replaced the first escape. Never accesses bytes outside
    /// the buffer, for any count.
    void convert(Buffer& buffer, std::ptrdiff_t count, std::string& text);

    /// Six hexadecimal digits, red, green, blue: `on` where the bit 0, 1 or 2 of `colour` is set, else `off`.
    static std::string getColor(unsigned int colour, const char* on, const char* off);

private:
    bool openSequence(Buffer& buffer, std::size_t& cursor, std::string& text);
    bool closeSequence(const Buffer& buffer, std::size_t& cursor, std::string& text);

    bool pending_ = false;   // a sequence is open
    std::uint32_t code_ = 0; // its number so far, modulo 2^32
};
