#include "apps/web/service/log/colourspans.h"
#include "target.h"

#include <algorithm>
#include <gtest/gtest.h>

// Colour escapes against a literal converter. Input: reads, each behind a byte that holds its length; a
// length of 255 stands for 256 bytes, and 254 for a failed read.

namespace {

const char* const COLOURS[] = {"000000", "AA0000", "00AA00", "AAAA00", "0000AA", "AA00AA",
                               "00AAAA", "AAAAAA", "555555", "FF5555", "55FF55", "FFFF55",
                               "5555FF", "FF55FF", "55FFFF", "FFFFFF"};

std::string literalTag(unsigned int code) {
    const unsigned int tens = code / 10;
    if (code == 0)
        return "</span>";
    std::string style;
    if (code % 10 < 8 && (tens == 3 || tens == 4 || tens == 9 || tens == 10))
        style = std::string(tens == 4 || tens == 10 ? "background-" : "") + "color: #" +
                COLOURS[code % 10 + (tens >= 9 ? 8 : 0)];
    return "<span style='" + style + "'>";
}

// The state between two reads: whether a sequence is open, and its number.
struct Literal {
    bool isPending = false;
    unsigned int code = 0;
    std::string text;

    void convert(char* buffer) {
        std::size_t cursor = 0;
        while (isPending || openSequence(buffer, cursor)) {
            while (buffer[cursor] >= '0' && buffer[cursor] <= '9')
                code = code * 10 + static_cast<unsigned int>(buffer[cursor++] - '0');
            if (buffer[cursor] == '\0')
                break;
            if (buffer[cursor++] == 'm')
                text += literalTag(code);
            isPending = false;
        }
        text += buffer + cursor;
    }

    bool openSequence(char* buffer, std::size_t& cursor) {
        std::size_t escape = cursor;
        while (buffer[escape] != '\0' && buffer[escape] != '\x1b')
            ++escape;
        if (buffer[escape] == '\0')
            return false;
        buffer[escape] = '\0';
        text += buffer + cursor;
        cursor = std::min<std::size_t>(escape + 2, 256);
        code = 0;
        return isPending = true;
    }
};

} // namespace

void handle(std::string_view input) {
    ColourSpans spans;
    ColourSpans::Buffer buffer{};
    ColourSpans::Buffer literalBuffer{};
    std::string text;
    Literal literal;
    while (!input.empty()) {
        const std::uint8_t length = takeNumber<std::uint8_t>(input);
        const std::string_view read = take(input, length == 255 ? 256 : length == 254 ? 0 : length);
        for (ColourSpans::Buffer* target : {&buffer, &literalBuffer})
            std::copy(read.begin(), read.end(), target->begin());
        if (length != 254)
            literalBuffer[read.size()] = '\0';
        spans.convert(buffer, length == 254 ? -1 : std::ssize(read), text);
        literal.convert(literalBuffer.data());
    }
    EXPECT_EQ(text, literal.text);
}
