#include "apps/common/fastcgi/records.h"
#include "apps/web/service/request.h"
#include "target.h"
#include "tests/unit/service/records.h"

#include <gtest/gtest.h>
#include <map>

// Name-value parameters of FastCGI against a literal decoder, and records against a literal writer. Input:
// the contents of records, each behind a byte that holds its length.

namespace {

using Bytes = std::basic_string<unsigned char>;

// One byte below 128, or four bytes. Returns -1 when there are too few.
std::int64_t literalLength(Bytes& rest) {
    const std::size_t width = !rest.empty() && rest[0] >= 128 ? 4 : 1;
    if (rest.size() < width) {
        rest.erase(0, width); // the first byte counts as read, and so do all behind it
        return -1;
    }
    const std::int64_t length =
        width == 1 ? rest[0] : (rest[0] - 128) * 0x1000000LL + rest[1] * 0x10000 + rest[2] * 0x100 + rest[3];
    rest.erase(0, width);
    return length;
}

void literalParams(Bytes rest, std::map<Bytes, Bytes>& params) {
    while (!rest.empty()) {
        const std::int64_t name = literalLength(rest);
        const std::int64_t value = literalLength(rest);
        if (name < 0 || value < 0 || name + value == 0 || name + value > std::ssize(rest))
            return;
        const auto split = static_cast<std::size_t>(name);
        const auto end = static_cast<std::size_t>(name + value);
        params[rest.substr(0, split)] = rest.substr(split, end - split);
        rest.erase(0, end);
    }
}

void compareLength(const Bytes& content) {
    Bytes rest = content;
    Bytes copy = content;
    unsigned char* cursor = copy.data();
    int remaining = static_cast<int>(copy.size());
    EXPECT_EQ(Request::getLength(cursor, remaining), literalLength(rest));
    EXPECT_TRUE(rest.empty() ? remaining == 0 : cursor + rest.size() == copy.data() + copy.size());
}

std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace

void handle(std::string_view input) {
    Request request(nullptr, -1, 0);
    std::map<Bytes, Bytes> expected;
    while (!input.empty()) {
        const std::string_view record = take(input, takeNumber<std::uint8_t>(input));
        const Bytes content(record.begin(), record.end());
        compareLength(content);
        request.addParams(content.data(), static_cast<int>(content.size()));
        literalParams(content, expected);
        std::string out;
        fastcgi::appendOutput(out, 1, record);
        fastcgi::appendEnd(out, 1);
        EXPECT_EQ(out,
                  (record.empty() ? "" : records::record(fastcgi::Stdout, record)) + records::END_RECORD);
    }
    for (const auto& [name, value] : expected)
        EXPECT_EQ(request.param(text(name)), text(value));
}
