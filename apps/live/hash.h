#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

/// Hashes name a content, and protect from nothing: FNV-1a with 64 bits
/// (http://www.isthe.com/chongo/tech/comp/fnv).
constexpr std::uint64_t HASH_BASIS = 0xcbf29ce484222325;
constexpr std::uint64_t HASH_PRIME = 0x100000001b3;

inline std::uint64_t hashOf(std::string_view text) {
    std::uint64_t hash = HASH_BASIS;
    for (const char character : text)
        hash = (hash ^ static_cast<unsigned char>(character)) * HASH_PRIME;
    return hash;
}

/// The hash of a sequence with one more value. The shift brings the upper half into the next multiplication.
inline std::uint64_t combineHash(std::uint64_t hash, std::uint64_t value) {
    hash = (hash ^ value) * HASH_PRIME;
    return hash ^ hash >> 32;
}

/// 16 hexadecimal digits.
inline std::string hexDigits(std::uint64_t hash) {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%08x%08x", static_cast<unsigned int>(hash >> 32),
                  static_cast<unsigned int>(hash & 0xFFFFFFFF));
    return digits;
}
