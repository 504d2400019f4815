#include "apps/web/service/app/multipart.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::Pair;

// What has been read from a body: the form, and the file if there is one.
struct Outcome {
    Form form;
    std::string file = "none";

    bool operator==(const Outcome&) const = default;
};

// The same reading as a plain copy of lines, one by one, from a stream into a state machine.
class LineReader {
public:
    Outcome read(const std::string& body, const std::string& boundary, const std::string& path) {
        std::istringstream stream(body);
        for (std::string line; !stream.eof();) {
            std::getline(stream, line);
            takeLine(line, "--" + boundary, path);
        }
        return outcome_;
    }

private:
    void takeLine(const std::string& line, const std::string& delimiter, const std::string& path) {
        if (line.starts_with(delimiter)) {
            if (headers_.contains("name"))
                outcome_.form[headers_["name"]] = value_;
            headers_.clear();
            value_.clear();
            inHeaders_ = true;
            crPending_ = inFile_ = false;
        } else if (inHeaders_) {
            takeHeader(std::string(trimHeaderText(line)), path);
        } else {
            emit(crPending_ ? "\r\n" : "");
            crPending_ = line.ends_with('\r');
            emit(crPending_ ? line.substr(0, line.size() - 1) : line + "\n");
        }
    }

    void takeHeader(const std::string& text, const std::string& path) {
        if (!text.empty())
            return splitHeaderLine(text, headers_);
        if (headers_.empty())
            return;
        inHeaders_ = false;
        if (headers_.contains("name") && headers_["name"] == "file") {
            inFile_ = true;
            value_ = path;
            if (outcome_.file == "none")
                outcome_.file.clear();
        }
    }

    void emit(const std::string& text) { (inFile_ ? outcome_.file : value_) += text; }

    Outcome outcome_;
    HeaderFields headers_;
    std::string value_;
    bool inHeaders_ = false;
    bool crPending_ = false;
    bool inFile_ = false;
};

class MultipartTest : public testing::Test {
protected:
    MultipartTest() {
        char name[] = "/tmp/multipart-XXXXXX";
        folder_ = mkdtemp(name);
        path_ = folder_ + "/upload";
    }
    ~MultipartTest() override { std::filesystem::remove_all(folder_); }

    Outcome read(const std::string& body) {
        Outcome outcome;
        std::filesystem::remove(path_);
        Multipart(body, "B-7", path_.c_str()).read(outcome.form);
        if (std::ifstream file(path_, std::ios::binary); file)
            outcome.file.assign(std::istreambuf_iterator<char>(file), {});
        return outcome;
    }

    // The file that a browser's form with `content` leaves.
    std::string stored(const std::string& content) {
        return read("--B-7\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.swu\"\r\n\r\n" +
                    content + "\r\n--B-7--\r\n")
            .file;
    }

    LogCapture log_;
    std::string folder_;
    std::string path_;
};

const std::string SAMPLE =
    "preamble\r\n--B-7\r\nContent-Disposition: form-data; name=\"deviceid\"\r\n\r\nFOCUS-12\r\n"
    "--B-7\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a;b\"\r\n"
    "Content-Type: application/octet-stream\r\n\r\n\0\r\n\n\r\r\n--B-\r\n--B-7\r\n"
    "\r\nname=file\n\nmore\n--B-7--\r\nafter"s;

TEST_F(MultipartTest, KeepsEveryByteBetweenTheEmptyLineAndALineThatBeginsWithTheDelimiter) {
    for (const std::string& content : {""s, "x"s, "\r\n"s, "\n"s, "\r"s, "a\r\n\r\n"s, "a\n"s, "a\r\r"s,
                                       "a\r\n\n\r\r\nb"s, "\0\r\n\0"s, "--B-\r\n--b-7"s, " --B-7"s, "x--B-7"s,
                                       "\r--B-7"s, "-\n-B-7"s, "\xff\xfe\r\r\n"s, std::string(100'000, '\n')})
        EXPECT_EQ(stored(content), content) << testing::PrintToString(content);
    EXPECT_EQ(stored("a\n--B-7"), "a\n");
    EXPECT_EQ(stored("a\r\n--B-70"), "a");
    EXPECT_EQ(stored("--B-7"), "");
}

TEST_F(MultipartTest, ReadsFieldsThatAreClosedAndPutsTheFilesPathInItsPlace) {
    const struct {
        std::string body;
        Form form;
        std::string file;
    } rows[] = {
        {SAMPLE, {{"deviceid", "FOCUS-12"}, {"file", path_}}, "\0\r\n\n\r\r\n--B-more\n"s}, // two file parts
        {"--B-7\nname=a\n\n1\r\n--B-7\nname=a;name=b\n\n2\n--B-7\nx\n\n3\r\n--B-7", {{"a", "2\n"}}, "none"},
        {"--B-7\nname=a\n--B-7\nname=b\n--B-7", {{"a", ""}, {"b", ""}}, "none"},
        {"--B-7\nname=a\n\n1\r\n--B-7\nname=file\n\nabc", {{"a", "1"}}, "abc\n"},
        {"--B-7\nname=file\n\nabc\r\n\r", {}, "abc\r\n"},
        {"no delimiter\n -- B-7", {}, "none"},
        {"", {}, "none"},
    };
    for (const auto& [body, form, file] : rows)
        EXPECT_EQ(read(body), (Outcome{form, file})) << body;
}

TEST_F(MultipartTest, ReadsABodyThatIsCutAnywhereOrHasAnyBitFlippedAsLineByLine) {
    const auto check = [&](const std::string& body, std::size_t at) {
        ASSERT_EQ(read(body), LineReader().read(body, "B-7", path_)) << at;
    };
    for (std::size_t size = 0; size <= SAMPLE.size(); ++size) {
        check(SAMPLE.substr(0, size), size);
        check(SAMPLE.substr(size), size);
    }
    for (std::size_t bit = 0; bit < SAMPLE.size() * 8; ++bit) {
        std::string body = SAMPLE;
        body[bit / 8] = static_cast<char>(body[bit / 8] ^ 1 << bit % 8);
        check(body, bit);
    }
}

TEST_F(MultipartTest, ABodyOfNothingButFieldsOrHeadersIsHeldWithinLimits) {
    std::string fields;
    std::string headers = "name=first";
    for (int i = 0; i < 3000; ++i) {
        fields += "--B-7\nname=" + std::to_string(i) + "\n\nv\r\n";
        headers += ";" + std::to_string(i);
    }
    EXPECT_EQ(read(fields + "--B-7").form.size(), 1000u);
    HeaderFields split;
    splitHeaderLine(headers, split);
    EXPECT_EQ(split.size(), 1000u);
}

TEST_F(MultipartTest, HeaderLinesAreSplitAtSemicolonsAndTrimmedOfQuotesAndTheFirstOfAKindCounts) {
    HeaderFields fields;
    splitHeaderLine("form-data; name=\" file \"; filename = \"a.swu\"", fields);
    splitHeaderLine("name=other;a=b=c;\t\"q\"\v;", fields);
    EXPECT_THAT(fields, ElementsAre(Pair("", ""), Pair("a", "b=c"), Pair("filename", "a.swu"),
                                    Pair("form-data", ""), Pair("name", "file"), Pair("q", "")));
    EXPECT_EQ(log_.messages().back(), "DebugAll Splitting line: \"name=other;a=b=c;\t\"q\"\v;\"");
}

} // namespace
