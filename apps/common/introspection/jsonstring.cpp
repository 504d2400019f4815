#include "apps/common/introspection/jsonstring.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::uint64_t ONES = 0x0101010101010101;
constexpr std::uint64_t HIGH_BITS = ONES * 0x80;

// High bits of the zero bytes in `word`. A byte after (above) a zero byte may show wrongly; "none at all" is
// exact.
std::uint64_t zeroBytes(std::uint64_t word) {
    return (word - ONES) & ~word & HIGH_BITS;
}

// Whether all eight bytes stand for themselves in a JSON string: ASCII, no control character below 0x20,
// neither quote nor backslash. 0x7f is written as it is.
bool isPlain(std::uint64_t word) {
    const std::uint64_t below20 = (word - ONES * 0x20) & ~word & HIGH_BITS;
    const std::uint64_t beyondAscii = word & HIGH_BITS;
    return (below20 | beyondAscii | zeroBytes(word ^ (ONES * '"')) | zeroBytes(word ^ (ONES * '\\'))) == 0;
}

// Looks at eight bytes at a time: the whole variable tree, thousands of strings, goes through here with each
// request.
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

// Replaces what stands in `out` from `start` on by its escaped form.
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
