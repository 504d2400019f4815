#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The test program is linked with the library and therefore calls the wrappers.
class Preload : public testing::Test {
protected:
    Preload() {
        for (const char* folder : {"/dev", "/update", "/var/LDA"})
            std::filesystem::create_directories(root_ + folder);
        setenv("VIRTUAL_DEVICE_ROOT", root_.c_str(), 1);
        setenv("VIRTUAL_DEVICE_NAME", name_.c_str(), 1);
    }

    ~Preload() override {
        unsetenv("VIRTUAL_DEVICE_ROOT");
        unsetenv("VIRTUAL_DEVICE_NAME");
        std::filesystem::remove_all(root_);
    }

    // Closes an open descriptor and removes `place` under the root. Returns whether it existed.
    bool made(int fd, const std::string& place) {
        EXPECT_GE(fd, 0);
        close(fd);
        return std::filesystem::remove(root_ + place);
    }

    char folder_[20] = "/tmp/preload-XXXXXX";
    const std::string root_ = mkdtemp(folder_);
    const std::string name_ = "preload-" + std::to_string(getpid()) + "-";
};

TEST_F(Preload, AllPathCallsAreMappedAndKeepErrno) {
    constexpr int MAKE = O_CREAT | O_WRONLY | O_CLOEXEC;
    errno = EDOM;
    const int fd = open("/update/a", MAKE, 0640);
    EXPECT_EQ(errno, EDOM);
    struct stat status {};
    fstat(fd, &status);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    EXPECT_TRUE(made(fd, "/update/a"));
    EXPECT_TRUE(made(open64("/var//LDA/a", MAKE, 0600), "/var/LDA/a"));
    EXPECT_TRUE(made(openat(-1, "/dev/fb0", MAKE, 0600), "/dev/fb0"));
    EXPECT_TRUE(made(openat64(-1, "/dev/mem", MAKE, 0600), "/dev/mem"));
    for (FILE* const file : {fopen("/update/b", "we"), fopen64("/update/b", "re")}) {
        ASSERT_NE(file, nullptr);
        fclose(file);
    }
    DIR* const folder = opendir("/update/");
    ASSERT_NE(folder, nullptr);
    closedir(folder);
    EXPECT_EQ(mkdir("/update/folder", 0700), 0);
    EXPECT_EQ(rename("/update/b", "/var/LDA/b"), 0);
    EXPECT_TRUE(std::filesystem::exists(root_ + "/var/LDA/b"));
    EXPECT_EQ(unlink("/var/LDA/b"), 0);
    EXPECT_FALSE(std::filesystem::exists(root_ + "/var/LDA/b"));
}

TEST_F(Preload, KernelLogIsOpenedForAppending) {
    const int first = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);
    const int second = open("/dev/kmsg", O_WRONLY | O_TRUNC | O_CLOEXEC);
    for (const int fd : {first, second, first})
        EXPECT_EQ(write(fd, "line\n", 5), 5);
    EXPECT_EQ(std::filesystem::file_size(root_ + "/dev/kmsg"), 15U);
    EXPECT_TRUE(made(first, "/dev/kmsg"));
    close(second);
}

TEST_F(Preload, TooLongNamesFailWithReason) {
    const std::string path = "/update/" + std::string(PATH_MAX - 10, 'x');
    EXPECT_TRUE(open(path.c_str(), O_RDONLY | O_CLOEXEC) < 0 && errno == ENAMETOOLONG);
    errno = 0;
    EXPECT_TRUE(shm_open(std::string(NAME_MAX, 'x').c_str(), O_RDWR, 0) < 0 && errno == ENAMETOOLONG);
}

} // namespace
