#include "apps/common/files/descriptor.h"
#include "apps/web/service/app/multipart.h"
#include "target.h"

#include <gtest/gtest.h>
#include <sstream>
#include <sys/mman.h>

// A form against a literal reader, line by line. Input: the boundary's line, then the body.

namespace {

// The file that a part named "file" is stored in.
struct Target {
    Descriptor file{memfd_create("upload", MFD_CLOEXEC)};
    std::string path = "/proc/self/fd/" + std::to_string(file.get());

    std::string content() const {
        std::string bytes(65536, '\0');
        bytes.resize(static_cast<std::size_t>(pread(file.get(), bytes.data(), bytes.size(), 0)));
        return bytes;
    }
};

struct Literal {
    Form form;
    std::string file;
    std::string delimiter;
    const std::string& path;

    HeaderFields headers;
    std::string value;
    bool isInHeaders = false;
    bool isCrPending = false;
    bool isWritingFile = false;

    void takeLine(const std::string& line) {
        if (line.starts_with(delimiter)) {
            if (headers.contains("name"))
                form[headers["name"]] = value;
            headers.clear();
            value.clear();
            isInHeaders = true;
            isCrPending = isWritingFile = false;
        } else if (isInHeaders) {
            takeHeader(std::string(trimHeaderText(line)));
        } else {
            emit(isCrPending ? "\r\n" : "");
            isCrPending = line.ends_with('\r');
            emit(isCrPending ? line.substr(0, line.size() - 1) : line + "\n");
        }
    }

    void takeHeader(const std::string& line) {
        isInHeaders = !line.empty() || headers.empty();
        if (!line.empty())
            splitHeaderLine(line, headers);
        isWritingFile = !isInHeaders && headers.contains("name") && headers["name"] == "file";
        if (isWritingFile)
            value = path;
    }

    void emit(const std::string& bytes) { (isWritingFile ? file : value) += bytes; }
};

} // namespace

void handle(std::string_view input) {
    static Target target;
    const std::string boundary(takeLine(input));
    if (boundary.empty() || input.size() > Multipart::MAX_PARTS)
        return; // below the limit of parts
    EXPECT_EQ(ftruncate(target.file.get(), 0), 0);
    Form form;
    EXPECT_TRUE(Multipart(input, boundary, target.path.c_str()).read(form));
    Literal literal{{}, {}, "--" + boundary, target.path, {}, {}};
    std::istringstream lines{std::string(input)};
    for (std::string line; !lines.eof();) {
        std::getline(lines, line);
        literal.takeLine(line);
    }
    EXPECT_EQ(form, literal.form);
    EXPECT_EQ(target.content(), literal.file);
}
