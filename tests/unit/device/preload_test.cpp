#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <semaphore.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    return (std::stringstream() << file.rdbuf()).str();
}

/// The test program is linked with the library, so its own calls meet the wrappers.
class Preload : public testing::Test {
protected:
    Preload() {
        for (const char* folder : {"/dev", "/update", "/var/volatile", "/var/LDA"}) {
            std::filesystem::create_directories(root_ + folder);
        }
        setenv("VIRTUAL_DEVICE_ROOT", root_.c_str(), 1);
        setenv("VIRTUAL_DEVICE_NAME", name_.c_str(), 1);
    }

    ~Preload() override {
        for (const char* name : {"VIRTUAL_DEVICE_ROOT", "VIRTUAL_DEVICE_NAME", "VIRTUAL_DEVICE_PORT"}) {
            unsetenv(name);
        }
        std::filesystem::remove_all(root_);
    }

    /// Closes a descriptor that must be open and returns whether a file stands at `place` under the root.
    bool made(int fd, const std::string& place) {
        EXPECT_GE(fd, 0);
        close(fd);
        return std::filesystem::remove(root_ + place);
    }

    char folder_[20] = "/tmp/preload-XXXXXX";
    const std::string root_ = mkdtemp(folder_);
    const std::string name_ = "preload-" + std::to_string(getpid()) + "-";
};

TEST_F(Preload, EveryWayToOpenLeadsIntoTheRoot) {
    constexpr int MAKE = O_CREAT | O_WRONLY | O_CLOEXEC;
    EXPECT_TRUE(made(open("/update/a", MAKE, 0600), "/update/a"));
    EXPECT_TRUE(made(open64("/var//LDA/a", MAKE, 0600), "/var/LDA/a"));
    EXPECT_TRUE(made(openat(-1, "/dev/fb0", MAKE, 0600), "/dev/fb0"));
    EXPECT_TRUE(made(openat64(-1, "/dev/mem", MAKE, 0600), "/dev/mem"));
    FILE* const file = fopen("/update/b", "we");
    ASSERT_NE(file, nullptr);
    fclose(file);
    FILE* const file64 = fopen64("/update/b", "re");
    ASSERT_NE(file64, nullptr);
    fclose(file64);
    DIR* const folder = opendir("/update/");
    ASSERT_NE(folder, nullptr);
    closedir(folder);
}

TEST_F(Preload, TheModeOfANewFileArrives) {
    const int fd = open("/update/a", O_CREAT | O_WRONLY | O_CLOEXEC, 0640);
    struct stat status {};
    fstat(fd, &status);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    EXPECT_TRUE(made(fd, "/update/a"));
}

TEST_F(Preload, FilesAreMovedAndRemovedInTheRoot) {
    EXPECT_EQ(mkdir("/update/folder", 0700), 0);
    close(open("/update/a", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_EQ(rename("/update/a", "/var/LDA/b"), 0);
    EXPECT_TRUE(std::filesystem::exists(root_ + "/var/LDA/b"));
    EXPECT_EQ(unlink("/var/LDA/b"), 0);
    EXPECT_FALSE(std::filesystem::exists(root_ + "/var/LDA/b"));
}

TEST_F(Preload, WritersOfTheKernelLogDoNotOverwriteEachOther) {
    const int first = open("/dev/kmsg", O_WRONLY | O_CLOEXEC);
    const int second = open("/dev/kmsg", O_WRONLY | O_TRUNC | O_CLOEXEC);
    for (const int fd : {first, second, first}) {
        EXPECT_EQ(write(fd, "line\n", 5), 5);
    }
    EXPECT_EQ(contentOf(root_ + "/dev/kmsg"), "line\nline\nline\n");
    EXPECT_TRUE(made(first, "/dev/kmsg"));
    close(second);
}

TEST_F(Preload, SegmentsAndSemaphoresGetTheDevicesName) {
    const int fd = shm_open("/Memory", O_CREAT | O_RDWR, 0600);
    EXPECT_GE(fd, 0);
    close(fd);
    EXPECT_TRUE(std::filesystem::exists("/dev/shm/" + name_ + "Memory"));
    EXPECT_EQ(shm_unlink("/Memory"), 0);
    sem_t* const semaphore = sem_open("/ready", O_CREAT | O_EXCL, 0600, 3U);
    ASSERT_NE(semaphore, SEM_FAILED);
    int value = 0;
    sem_getvalue(semaphore, &value);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(sem_open("/ready", 0), semaphore);
    EXPECT_TRUE(std::filesystem::exists("/dev/shm/sem." + name_ + "ready"));
    sem_close(semaphore);
    sem_close(semaphore);
    EXPECT_EQ(sem_unlink("/ready"), 0);
}

TEST_F(Preload, TheBrokersSocketIsTheDevicesOwn) {
    sockaddr_un address{AF_UNIX, "/var/volatile/message-broker.socket"};
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(server, generic, sizeof address), 0);
    ASSERT_EQ(listen(server, 1), 0);
    EXPECT_TRUE(std::filesystem::is_socket(root_ + "/var/volatile/message-broker.socket"));
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(client, generic, sizeof address), 0);
    close(client);
    close(server);
}

TEST_F(Preload, OnlyTheDevicesPortIsMoved) {
    setenv("VIRTUAL_DEVICE_PORT", "0", 1);
    const auto boundPort = [](int port) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<in_port_t>(port));
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        close(fd);
        return ntohs(address.sin_port);
    };
    const int port = boundPort(0);
    setenv("VIRTUAL_DEVICE_PORT", std::to_string(port).c_str(), 1);
    EXPECT_EQ(boundPort(9000), port);
    EXPECT_NE(boundPort(0), port);
}

TEST_F(Preload, WhatDoesNotFitIsRefusedWithItsReason) {
    const auto expectTooLong = [](bool isRefused) {
        EXPECT_TRUE(isRefused);
        EXPECT_EQ(errno, ENAMETOOLONG);
        errno = 0;
    };
    const std::string longPath = "/update/" + std::string(PATH_MAX - 10, 'x');
    expectTooLong(open(longPath.c_str(), O_RDONLY | O_CLOEXEC) < 0);
    expectTooLong(fopen(longPath.c_str(), "re") == nullptr);
    expectTooLong(rename("/update/a", longPath.c_str()) < 0);
    expectTooLong(shm_open(std::string(NAME_MAX, 'x').c_str(), O_RDWR, 0) < 0);
    expectTooLong(sem_open(std::string(NAME_MAX, 'x').c_str(), 0) == SEM_FAILED);
    setenv("VIRTUAL_DEVICE_ROOT", ("/tmp/" + std::string(80, 'x')).c_str(), 1);
    const sockaddr_un address{AF_UNIX, "/var/volatile/message-broker.socket"};
    expectTooLong(connect(-1, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0);
}

TEST_F(Preload, WithoutTheEnvironmentNothingChanges) {
    unsetenv("VIRTUAL_DEVICE_ROOT");
    unsetenv("VIRTUAL_DEVICE_NAME");
    EXPECT_LT(open("/update/none", O_RDONLY | O_CLOEXEC), 0);
    EXPECT_EQ(errno, ENOENT);
    const std::string name = "/" + name_ + "plain";
    const int fd = shm_open(name.c_str(), O_CREAT | O_RDWR, 0600);
    close(fd);
    EXPECT_TRUE(std::filesystem::remove("/dev/shm" + name));
}

TEST_F(Preload, SuccessLeavesErrnoAlone) {
    errno = EDOM;
    const int fd = open("/update/a", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    EXPECT_EQ(errno, EDOM);
    EXPECT_TRUE(made(fd, "/update/a"));
}

} // namespace
