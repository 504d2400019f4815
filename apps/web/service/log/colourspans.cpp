#include "apps/web/service/log/colourspans.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char ESCAPE = 27;
constexpr std::size_t INTRODUCER = 2; // the escape byte and the bracket

struct ColourRange {
    std::uint32_t first;
    const char* property;
    const char* on;
    const char* off;
};

constexpr std::uint32_t COLOURS = 8;
constexpr ColourRange RANGES[] = {
    {30, "color: #", "AA", "00"},
    {40, "background-color: #", "AA", "00"},
    {90, "color: #", "FF", "55"},
    {100, "background-color: #", "FF", "55"},
};

std::string style(std::uint32_t code) {
    for (const ColourRange& range : RANGES)
        if (code >= range.first && code - range.first < COLOURS)
            return range.property + ColourSpans::getColor(code - range.first, range.on, range.off);
    return {};
}

std::string tag(std::uint32_t code) {
    return code == 0 ? "</span>" : "<span style='" + style(code) + "'>";
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

void ColourSpans::convert(Buffer& buffer, std::ptrdiff_t count, std::string& text) {
    if (count >= 0)
        buffer[std::min(static_cast<std::size_t>(count), READ_SIZE)] = '\0';
    buffer[READ_SIZE] = '\0'; // ends every search below
    std::size_t cursor = 0;
    bool open = pending_ || openSequence(buffer, cursor, text);
    while (open && closeSequence(buffer, cursor, text))
        open = openSequence(buffer, cursor, text);
    text += buffer.data() + cursor;
}

// Appends the text before the next escape. Returns false, with the cursor unchanged, when there is no escape.
bool ColourSpans::openSequence(Buffer& buffer, std::size_t& cursor, std::string& text) {
    char* const start = buffer.data() + cursor;
    char* const escape = std::strchr(start, ESCAPE);
    if (escape == nullptr)
        return false;
    *escape = '\0';
    text += start;
    pending_ = true;
    code_ = 0;
    const auto at = static_cast<std::size_t>(escape - buffer.data());
    cursor = std::min(at + INTRODUCER, READ_SIZE);
    return true;
}

// Reads the sequence to its end. Returns false, with the cursor on a zero byte, when the read ends first.
bool ColourSpans::closeSequence(const Buffer& buffer, std::size_t& cursor, std::string& text) {
    for (; isDigit(buffer[cursor]); ++cursor)
        code_ = code_ * 10 + static_cast<std::uint32_t>(buffer[cursor] - '0');
    if (buffer[cursor] == '\0')
        return false;
    if (buffer[cursor] == 'm')
        text += tag(code_);
    pending_ = false;
    ++cursor;
    return true;
}

std::string ColourSpans::getColor(unsigned int colour, const char* on, const char* off) {
    std::string digits;
    for (const unsigned int bit : {1U, 2U, 4U})
        digits += (colour & bit) != 0 ? on : off;
    return digits;
}
