#include "apps/web/service/log/colourspans.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string_view>
#include <vector>

namespace {

// The reads of one readiness: they share a buffer, which lies on the heap, where a sanitizer watches its
// ends.
class Readiness {
public:
    explicit Readiness(ColourSpans& spans) : spans_(spans) {}

    void read(std::string_view bytes) {
        std::memcpy(buffer_->data(), bytes.data(), bytes.size());
        spans_.convert(*buffer_, static_cast<std::ptrdiff_t>(bytes.size()), text);
    }
    void fail() { spans_.convert(*buffer_, -1, text); }

    std::string text;

private:
    ColourSpans& spans_;
    std::unique_ptr<ColourSpans::Buffer> buffer_ = std::make_unique<ColourSpans::Buffer>();
};

// What comes of reads that each have a readiness of their own.
std::string converted(const std::vector<std::string>& reads) {
    ColourSpans spans;
    std::string text;
    for (const std::string& bytes : reads) {
        Readiness readiness(spans);
        readiness.read(bytes);
        text += readiness.text;
    }
    return text;
}

// A piece of dmesg's output and what becomes of it, with a split anywhere but behind its escape byte.
struct Piece {
    const char* input;
    const char* output;
};

const Piece PIECES[] = {
    {"usb 1-1: <b>&\n", "usb 1-1: <b>&\n"},
    {"\033[0m", "</span>"},
    {"\033[m", "</span>"},
    {"\033[38m", "<span style=''>"},
    {"\033[29m", "<span style=''>"},
    {"\033[108m", "<span style=''>"},
    {"\033[30m", "<span style='color: #000000'>"},
    {"\033[33mX", "<span style='color: #AAAA00'>X"},
    {"\033[37m", "<span style='color: #AAAAAA'>"},
    {"\033[40m", "<span style='background-color: #000000'>"},
    {"\033[46m", "<span style='background-color: #00AAAA'>"},
    {"\033[90m", "<span style='color: #555555'>"},
    {"\033[97m", "<span style='color: #FFFFFF'>"},
    {"\033[104m", "<span style='background-color: #5555FF'>"},
    {"\033[4294967327m", "<span style='color: #AA0000'>"}, // 31 + 2^32
    {"\033[1;32mtext", "32mtext"},
    {"\033[K", ""},
    {"\033]2mx", "<span style=''>x"},
    {"\303\251\t\r\n", "\303\251\t\r\n"},
};

TEST(ColourSpansTest, EachSequenceBecomesItsSpanAndTextWhenItIsSplitBehindItsEscapeByte) {
    for (const Piece& piece : PIECES) {
        EXPECT_EQ(converted({piece.input}), piece.output) << piece.input + 1;
        if (!std::string_view(piece.input).starts_with("\033["))
            continue;
        EXPECT_EQ(converted({"\033", piece.input + 1}), piece.input + 2);
    }
}

TEST(ColourSpansTest, SequencesMayBeSplitAtAnyTwoPlacesButBehindTheEscapeByte) {
    std::string sample;
    std::string expected;
    for (const Piece& piece : PIECES) {
        sample += piece.input;
        expected += piece.output;
    }
    const auto isSplitBy = [&](std::size_t at) { return at > 0 && sample[at - 1] == '\033'; };
    for (std::size_t first = 0; first <= sample.size(); ++first) {
        for (std::size_t last = first; last <= sample.size(); ++last) {
            if (isSplitBy(first) || isSplitBy(last))
                continue;
            const std::string middle = sample.substr(first, last - first);
            ASSERT_EQ(converted({sample.substr(0, first), middle, sample.substr(last)}), expected) << middle;
        }
    }
}

TEST(ColourSpansTest, EscapeAtTheEndOfAReadSkipsWhatStandsBehindItInTheBuffer) {
    const std::string full = std::string(255, 'x') + "\033"; // where the buffer ends
    EXPECT_EQ(converted({full, "[31mY"}), std::string(255, 'x') + "31mY");
    ColourSpans spans;
    Readiness readiness(spans);
    readiness.read("abcdefg");
    readiness.read("1\033"); // behind the zero stands "defg", and "d" ends the sequence
    EXPECT_EQ(readiness.text, "abcdefg1efg");
}

TEST(ColourSpansTest, FailedReadRepeatsTheReadBeforeUpToItsFirstEscape) {
    ColourSpans spans;
    Readiness readiness(spans);
    readiness.fail();
    EXPECT_EQ(readiness.text, "");
    readiness.read(std::string(255, '.') + "\033");
    readiness.text.clear();
    readiness.fail(); // with the sequence still open, the text is taken for its rest
    EXPECT_EQ(readiness.text, std::string(254, '.'));
}

TEST(ColourSpansTest, ZeroByteHidesTheRestOfItsRead) {
    using namespace std::string_literals;
    EXPECT_EQ(converted({"a\0b\033[31mc"s, "d"}), "ad");
    EXPECT_EQ(converted({"a\033[3\0b"s, "1md"}), "a<span style='color: #AA0000'>d");
}

TEST(ColourSpansTest, AnyInputInAnyReadsStaysWithinTheBuffer) {
    const std::string_view alphabet("\033\033[[0123456789m;x\n\0", 19);
    std::mt19937 random(1);
    ColourSpans spans;
    const auto buffer = std::make_unique<ColourSpans::Buffer>();
    for (int round = 0; round < 200000; ++round) {
        for (std::size_t i = 0, size = random() % 257; i < size; ++i)
            (*buffer)[i] = alphabet[random() % alphabet.size()];
        std::string text;
        spans.convert(*buffer, static_cast<std::ptrdiff_t>(random() % 280) - 12, text);
        ASSERT_EQ(text.find_first_of(std::string_view("\033\0", 2)), std::string::npos);
    }
}

} // namespace
