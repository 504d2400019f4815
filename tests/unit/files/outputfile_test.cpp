#include "apps/common/files/outputfile.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST(OutputFile, FileIsReplacedAndClosedOnExec) {
    const std::string path = "/tmp/outputfile-" + std::to_string(getpid());
    std::ofstream(path) << "former content";
    const int next = Descriptor(dup(STDIN_FILENO)).get();
    OutputFile file;
    EXPECT_TRUE(file.open(path));
    EXPECT_EQ(fcntl(next, F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(file.write("new") && file.write({"\0content", 8}));
    EXPECT_EQ(std::filesystem::file_size(path), 11U);
    std::filesystem::remove(path);
}

TEST(OutputFile, FailuresAreReturnedWithTheirReason) {
    const std::string pipe = "/tmp/outputfile-pipe-" + std::to_string(getpid());
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::pair<std::string, int> cases[] = {{"/tmp", EISDIR},
                                                 {"/nonexistent/file", ENOENT},
                                                 {std::string("/tmp\0file", 9), ENOENT},
                                                 {pipe, ENXIO}};
    for (const auto& [path, reason] : cases) {
        OutputFile file;
        EXPECT_FALSE(file.open(path));
        EXPECT_EQ(errno, reason) << path;
        EXPECT_TRUE(!file.write("x") && errno == EBADF);
    }
    std::filesystem::remove(pipe);
    OutputFile full;
    EXPECT_TRUE(full.open("/dev/full") && !full.write("x") && errno == ENOSPC);
}

} // namespace
