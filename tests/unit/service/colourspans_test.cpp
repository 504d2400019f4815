#include "apps/web/service/colourspans.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string_view>
#include <vector>

namespace {

/// The reads of one readiness: they share a buffer, which lies on the heap, where a sanitizer watches its
/// ends.
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

/// A piece of dmesg's output and what becomes of it, with a split anywhere but behind its escape byte.
struct Piece {
    const char* input;
    const char* output;
};

const Piece PIECES[] = {
    {"usb 1-1: <b>&\n", "usb 1-1: <b>&\n"},
    {"\033[0m", "</span>"},
    {"\033[m", "</span>"},
    {"\033[00m", "</span>"},
    {"\033[1m", "<span style=''>"},
    {"\033[38m", "<span style=''>"},
    {"\033[29m", "<span style=''>"},
    {"\033[108m", "<span style=''>"},
    {"\033[30m", "<span style='color: #000000'>"},
    {"\033[31m", "<span style='color: #AA0000'>"},
    {"\033[33mX", "<span style='color: #AAAA00'>X"},
    {"\033[37m", "<span style='color: #AAAAAA'>"},
    {"\033[40m", "<span style='background-color: #000000'>"},
    {"\033[46m", "<span style='background-color: #00AAAA'>"},
    {"\033[90m", "<span style='color: #555555'>"},
    {"\033[97m", "<span style='color: #FFFFFF'>"},
    {"\033[104m", "<span style='background-color: #5555FF'>"},
    {"\033[105m", "<span style='background-color: #FF55FF'>"},
    {"\033[4294967327m", "<span style='color: #AA0000'>"}, // 31 + 2^32
    {"\033[1;32mtext", "32mtext"},
    {"\033[K", ""},
    {"\033]2mx", "<span style=''>x"},
    {"\303\251\t\r\n", "\303\251\t\r\n"},
};

TEST(ColourSpansTest, EachSequenceBecomesItsSpan) {
    for (const Piece& piece : PIECES)
        EXPECT_EQ(converted({piece.input}), piece.output) << piece.input + 1;
}

TEST(ColourSpansTest, SequencesMayBeSplitAnywhereButBehindTheEscapeByte) {
    std::string sample;
    std::string expected;
    for (const Piece& piece : PIECES) {
        sample += piece.input;
        expected += piece.output;
    }
    ASSERT_LE(sample.size(), ColourSpans::READ_SIZE);
    for (std::size_t at = 0; at <= sample.size(); ++at) {
        if (at == 0 || sample[at - 1] != '\033') {
            EXPECT_EQ(converted({sample.substr(0, at), sample.substr(at)}), expected) << at;
        }
    }
}

TEST(ColourSpansTest, SplitBehindTheEscapeByteTurnsTheSequenceIntoText) {
    for (const Piece& piece : PIECES) {
        if (std::string_view(piece.input).starts_with("\033[")) {
            EXPECT_EQ(converted({"\033", piece.input + 1}), piece.input + 2);
        }
    }
    EXPECT_EQ(converted({"a\033", "31mb"}), "a<span style='color: #AA0000'>b");
}

TEST(ColourSpansTest, NumberGathersOverManyReads) {
    EXPECT_EQ(converted({"x\033[", "", "1", "0", "", "4", "mY"}),
              "x<span style='background-color: #5555FF'>Y");
}

TEST(ColourSpansTest, EscapeAtTheEndOfAFullReadStaysWithinTheBuffer) {
    const std::string full = std::string(255, 'x') + "\033";
    EXPECT_EQ(converted({full, "[31mY"}), std::string(255, 'x') + "31mY");
    const std::string cut = std::string(254, 'x') + "\033[";
    EXPECT_EQ(converted({cut, "31mY"}), std::string(254, 'x') + "<span style='color: #AA0000'>Y");
}

TEST(ColourSpansTest, EscapeAtTheEndOfAShortReadSkipsIntoTheReadBefore) {
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
    readiness.read("first\n\033[31msecond" + std::string(239, '.'));
    readiness.text.clear();
    readiness.fail();
    EXPECT_EQ(readiness.text, "first\n");
    readiness.read("31m" + std::string(252, '.') + "\033");
    readiness.text.clear();
    readiness.fail(); // with the sequence still open, the text is taken for its rest
    EXPECT_EQ(readiness.text, "<span style='color: #AA0000'>" + std::string(252, '.'));
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

TEST(ColourSpansTest, LongStreamInRandomReadsBecomesTheSpansOfItsPieces) {
    std::mt19937 random(2);
    std::string input;
    std::string expected;
    for (int i = 0; i < 100000; ++i) {
        const Piece& piece = PIECES[random() % std::size(PIECES)];
        input += piece.input;
        expected += piece.output;
    }
    ColourSpans spans;
    Readiness readiness(spans);
    for (std::size_t at = 0, end = 0; at < input.size(); at = end) {
        end = std::min(input.size(), at + 1 + random() % ColourSpans::READ_SIZE);
        end -= input[end - 1] == '\033' ? 1 : 0;
        end += end == at ? 2 : 0;
        readiness.read(std::string_view(input).substr(at, end - at));
    }
    EXPECT_TRUE(readiness.text == expected);
}

} // namespace
