#include "apps/web/service/app/multipart.h"

#include "apps/web/service/app/writeinpieces.h"
#include "tests/unit/diagnostics/logcapture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::Pair;

class MultipartTest : public testing::Test {
protected:
    ~MultipartTest() override { std::filesystem::remove_all(folder_); }

    // The form and the file's content, "none" without a file.
    std::pair<Form, std::string> read(const std::string& body) {
        Form form;
        std::filesystem::remove(path_);
        EXPECT_TRUE(Multipart(body, "B-7", path_.c_str()).read(form));
        std::ifstream file(path_, std::ios::binary);
        return {form, file ? std::string(std::istreambuf_iterator<char>(file), {}) : "none"};
    }

    LogCapture log_;
    char name_[22] = "/tmp/multipart-XXXXXX";
    const std::string folder_ = mkdtemp(name_);
    const std::string path_ = folder_ + "/upload";
};

const std::string FILE_HEADERS = "Content-Disposition: form-data; name=\"file\"; filename=\"a;b\"\r\n\r\n";
const std::string SAMPLE =
    "preamble\r\n--B-7\r\nContent-Disposition: form-data; name=\"deviceid\"\r\n\r\nFOCUS-12\r\n"
    "--B-7\r\n" +
    FILE_HEADERS +
    "\0\r\n\n\r\r\n--B-\r\n--B-7\r\n"
    "\r\nname=file\n\nmore\n--B-7--\r\nafter"s;

TEST_F(MultipartTest, ReadsFieldsAndReplacesTheFileByItsPath) {
    const auto& [form, file] = read(SAMPLE);
    EXPECT_THAT(form, ElementsAre(Pair("deviceid", "FOCUS-12"), Pair("file", path_)));
    EXPECT_EQ(file, "\0\r\n\n\r\r\n--B-more\n"s) << "of two parts";
}

TEST_F(MultipartTest, FieldsEndAtTheirDelimiter) {
    for (std::size_t size = 0; size <= SAMPLE.size(); ++size) {
        const auto& [form, file] = read(SAMPLE.substr(0, size));
        const bool isWhole = size >= SAMPLE.find("\n--B-7", SAMPLE.find("FOCUS")) + 6;
        ASSERT_EQ(form.contains("deviceid"), isWhole) << size;
        read(SAMPLE.substr(size));
    }
}

TEST_F(MultipartTest, LimitsFieldsAndHeaderFields) {
    std::string fields;
    std::string headers = "name=first";
    for (int i = 0; i < 3000; ++i) {
        fields += "--B-7\nname=" + std::to_string(i) + "\n\nv\r\n";
        headers += ";" + std::to_string(i);
    }
    EXPECT_EQ(read(fields + "--B-7").first.size(), 1000u);
    const std::string tooLong =
        "--B-7\nname=a\n\n1\n--B-7\nname=b;" + std::string(65536, 'h') + "\n\n2\n--B-7";
    EXPECT_EQ(read(tooLong).first.size(), 1u);
    Form form;
    EXPECT_FALSE(Multipart("--B-7\nname=file\n\n1\n--B-7", "B-7", "/none/file").read(form));
    HeaderFields split;
    splitHeaderLine(headers, split);
    EXPECT_EQ(split.size(), 1000u);
}

TEST_F(MultipartTest, EachPieceOfALargeFileFeedsTheWatchdog) {
    const Descriptor systemd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{AF_UNIX, {}};
    path_.copy(address.sun_path, sizeof address.sun_path);
    ASSERT_EQ(bind(systemd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path_.c_str(), 1);
    setenv("WATCHDOG_USEC", "2", 1);
    OutputFile file;
    const std::string content = std::string(16 << 20, 'a') + std::string(16 << 20, 'b') + "c";
    EXPECT_TRUE(file.open(folder_ + "/large") && writeInPieces(file, content));
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    for (const ssize_t expected : {10, 10, -1}) // "WATCHDOG=1"
        EXPECT_EQ(recv(systemd.get(), nullptr, 0, MSG_DONTWAIT | MSG_TRUNC), expected);
    std::ifstream stored(folder_ + "/large", std::ios::binary);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(stored), {}) == content);
}

TEST_F(MultipartTest, SplitsHeaderLinesAndLogsThem) {
    HeaderFields fields;
    splitHeaderLine("form-data; name=\" file \"; filename = \"a.swu\"", fields);
    splitHeaderLine("name=other;a=b=c;\t\"q\"\v;", fields);
    EXPECT_THAT(fields, ElementsAre(Pair("", ""), Pair("a", "b=c"), Pair("filename", "a.swu"),
                                    Pair("form-data", ""), Pair("name", "file"), Pair("q", "")));
    read("--B-7\nname=a\n\n1\r\n--B-7");
    EXPECT_THAT(log_.messages(),
                testing::IsSupersetOf({"DebugAll Splitting line: \"name=other;a=b=c;\t\"q\"\v;\"",
                                       "DebugMost Start of new block",
                                       "DebugMost Block data for fields:", "DebugAll   name: a"}));
}

} // namespace
