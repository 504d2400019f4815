#include "apps/web/service/log/colourspans.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// The conversion of reads in separate events.
std::string converted(const std::vector<std::string>& reads) {
    ColourSpans spans;
    std::string text;
    for (const std::string& bytes : reads) {
        ColourSpans::Buffer buffer{};
        bytes.copy(buffer.data(), bytes.size());
        spans.convert(buffer, std::ssize(bytes), text);
    }
    return text;
}

// A part of the output of dmesg and its conversion. The corpus of the fuzzer has reads that end in an escape,
// and that fail.
struct Piece {
    const char* input;
    const char* output;
};

const Piece PIECES[] = {
    {"usb 1-1: <b>&\n", "usb 1-1: <b>&\n"},
    {"\033[0m", "</span>"},
    {"\033[m", "</span>"},
    {"\033[38m", "<span style=''>"},
    {"\033[108m", "<span style=''>"},
    {"\033[30m", "<span style='color: #000000'>"},
    {"\033[33mX", "<span style='color: #AAAA00'>X"},
    {"\033[40m", "<span style='background-color: #000000'>"},
    {"\033[90m", "<span style='color: #555555'>"},
    {"\033[97m", "<span style='color: #FFFFFF'>"},
    {"\033[104m", "<span style='background-color: #5555FF'>"},
    {"\033[4294967327m", "<span style='color: #AA0000'>"}, // 31 + 2^32
    {"\033[1;32mtext", "32mtext"},
    {"\033[K", ""},
    {"\033]2mx", "<span style=''>x"},
};

TEST(ColourSpansTest, ConvertsTheSameFromAnyTwoSplits) {
    std::string sample;
    std::string expected;
    for (const Piece& piece : PIECES) {
        EXPECT_EQ(converted({piece.input}), piece.output) << piece.input + 1;
        sample += piece.input;
        expected += piece.output;
    }
    const auto isAfterEscape = [&](std::size_t at) { return at > 0 && sample[at - 1] == '\033'; };
    for (std::size_t first = 0; first <= sample.size(); ++first) {
        for (std::size_t last = first; last <= sample.size(); ++last) {
            if (isAfterEscape(first) || isAfterEscape(last))
                continue;
            const std::string middle = sample.substr(first, last - first);
            ASSERT_EQ(converted({sample.substr(0, first), middle, sample.substr(last)}), expected) << middle;
        }
    }
    EXPECT_EQ(converted({"\033", "[31mX"}), "31mX");
}

} // namespace
