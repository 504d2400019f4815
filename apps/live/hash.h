#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// The 64-bit FNV-1a hash of the text as 16 hexadecimal digits: names a content, and protects from nothing.
inline std::string contentHash(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char character : text)
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001b3;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%08x%08x", static_cast<unsigned int>(hash >> 32),
                  static_cast<unsigned int>(hash & 0xFFFFFFFF));
    return digits;
}
