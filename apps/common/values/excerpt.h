#pragma once

#include <string>
#include <string_view>

/// The text, or if it is longer than `limit` bytes its start, cut at a whole character of UTF-8, and "...".
inline std::string excerpt(std::string_view text, std::size_t limit) {
    if (text.size() <= limit)
        return std::string(text);
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80)
        --end;
    return std::string(text.substr(0, end)) + "...";
}
