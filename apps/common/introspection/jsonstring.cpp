#include "apps/common/introspection/jsonstring.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::uint64_t ONES = 0x0101010101010101;
constexpr std::uint64_t HIGH_BITS = ONES * 0x80;

// The high bits of the zero bytes in `word`. Only the comparison with 0 is exact: a byte above a zero byte
// may be wrong.
std::uint64_t zeroBytes(std::uint64_t word) {
    return (word - ONES) & ~word & HIGH_BITS;
}

// Whether none of the eight bytes needs escaping in a JSON string: ASCII from 0x20 on without quotation mark
// and backslash. The library does not escape 0x7f either.
bool isPlain(std::uint64_t word) {
    const std::uint64_t below20 = (word - ONES * 0x20) & ~word & HIGH_BITS;
    const std::uint64_t beyondAscii = word & HIGH_BITS;
    return (below20 | beyondAscii | zeroBytes(word ^ (ONES * '"')) | zeroBytes(word ^ (ONES * '\\'))) == 0;
}

// Checks eight bytes at a time: every request for the variable tree passes thousands of strings.
bool isPlain(const char* text, std::size_t length) {
    std::uint64_t word = 0;
    for (; length >= sizeof(word); text += sizeof(word), length -= sizeof(word)) {
        std::memcpy(&word, text, sizeof(word));
        if (!isPlain(word))
            return false;
    }
    word = ONES * ' ';
    std::memcpy(&word, text, length);
    return isPlain(word);
}

// Escapes the characters of `out` from `start` on.
void escapeFrom(std::string& out, std::size_t start) {
    const nlohmann::json text = out.substr(start);
    out.resize(start);
    out += text.dump();
}

} // namespace

void appendJsonString(std::string& out, std::string_view text) {
    const std::size_t start = out.size();
    out += '"';
    out += text;
    if (isPlain(out.data() + start + 1, text.size())) {
        out += '"';
        return;
    }
    out.erase(start, 1);
    escapeFrom(out, start);
}
