#include "apps/web/service/log/colourspans.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string_view>
#include <vector>

namespace {

// The reads of one event. They share a buffer on the heap, where a sanitizer checks its ends.
class Event {
public:
    explicit Event(ColourSpans& spans) : spans_(spans) {}

    void read(std::string_view bytes) {
        std::memcpy(buffer_->data(), bytes.data(), bytes.size());
        spans_.convert(*buffer_, std::ssize(bytes), text);
    }
    void fail() { spans_.convert(*buffer_, -1, text); }

    std::string text;

private:
    ColourSpans& spans_;
    std::unique_ptr<ColourSpans::Buffer> buffer_ = std::make_unique<ColourSpans::Buffer>();
};

// The conversion of reads in separate events.
std::string converted(const std::vector<std::string>& reads) {
    ColourSpans spans;
    std::string text;
    for (const std::string& bytes : reads) {
        Event event(spans);
        event.read(bytes);
        text += event.text;
    }
    return text;
}

// A part of the output of dmesg and its conversion.
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

TEST(ColourSpansTest, EscapeAtTheEndOfAReadSkipsIntoTheOldBytes) {
    const std::string full = std::string(255, 'x') + "\033"; // where the buffer ends
    EXPECT_EQ(converted({full, "[31mY"}), std::string(255, 'x') + "31mY");
    ColourSpans spans;
    Event event(spans);
    event.read("abcdefg");
    event.read("1\033"); // "defg" follows the zero, and "d" ends the sequence
    EXPECT_EQ(event.text, "abcdefg1efg");
}

TEST(ColourSpansTest, FailedReadRepeatsThePreviousOne) {
    ColourSpans spans;
    Event event(spans);
    event.fail();
    EXPECT_EQ(event.text, "");
    event.read(std::string(255, '.') + "\033");
    event.text.clear();
    event.fail(); // the sequence is still open and takes the first character
    EXPECT_EQ(event.text, std::string(254, '.'));
}

TEST(ColourSpansTest, ZeroByteHidesTheRestOfItsRead) {
    using namespace std::string_literals;
    EXPECT_EQ(converted({"a\0b\033[31mc"s, "d"}), "ad");
    EXPECT_EQ(converted({"a\033[3\0b"s, "1md"}), "a<span style='color: #AA0000'>d");
}

} // namespace
