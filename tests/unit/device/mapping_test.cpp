#include "device/preload/mapping.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace {

/// The mapped path under "/root", or a word for what is not mapped.
std::string map(const std::string& path, std::size_t size = PATH_MAX) {
    std::string out(size, '#');
    switch (mappedPath("/root", path.c_str(), out.data(), size)) {
    case PathKind::Elsewhere:
        return "elsewhere";
    case PathKind::TooLong:
        return "too long";
    default:
        return out.c_str();
    }
}

TEST(MappedPath, DeviceFilesAndFoldersLieUnderTheRoot) {
    EXPECT_EQ(map("/dev/fb0"), "/root/dev/fb0");
    EXPECT_EQ(map("/dev/mem"), "/root/dev/mem");
    EXPECT_EQ(map("/dev/mmcblk1"), "/root/dev/mmcblk1");
    EXPECT_EQ(map("/var/volatile/message-broker.socket"), "/root/var/volatile/message-broker.socket");
    EXPECT_EQ(map("/tmp/post-data"), "/root/tmp/post-data");
    EXPECT_EQ(map("/update"), "/root/update");
    EXPECT_EQ(map("/update/"), "/root/update/");
    EXPECT_EQ(map("/update/host.swu"), "/root/update/host.swu");
    EXPECT_EQ(map("/var/FOR/a/b"), "/root/var/FOR/a/b");
}

TEST(MappedPath, OnlyTheKernelLogIsOpenedForAppending) {
    char out[PATH_MAX];
    EXPECT_EQ(mappedPath("/root", "/dev/kmsg", out, sizeof out), PathKind::KernelLog);
    EXPECT_STREQ(out, "/root/dev/kmsg");
    EXPECT_EQ(mappedPath("/root", "/dev/fb0", out, sizeof out), PathKind::File);
    EXPECT_EQ(mappedPath("/root", "/update/x", out, sizeof out), PathKind::Folder);
}

TEST(MappedPath, DoubledSlashesAndDotsDoNotHideADevicePath) {
    EXPECT_EQ(map("/var//LDA/"), "/root/var/LDA/");
    EXPECT_EQ(map("/var//LDA/lens.tab"), "/root/var/LDA/lens.tab");
    EXPECT_EQ(map("//dev///kmsg"), "/root/dev/kmsg");
    EXPECT_EQ(map("/var/./SETUPS/./x"), "/root/var/SETUPS/x");
    EXPECT_EQ(map("/etc/../update/x"), "/root/update/x");
    EXPECT_EQ(map("/var/LDA/../FOR/x"), "/root/var/FOR/x");
    EXPECT_EQ(map("/../../update/..x"), "/root/update/..x");
}

TEST(MappedPath, WhatAsksForAFolderStillDoes) {
    EXPECT_EQ(map("/dev/fb0/"), "/root/dev/fb0/");
    EXPECT_EQ(map("/update/."), "/root/update/");
    EXPECT_EQ(map("/update/x/.."), "/root/update/");
}

TEST(MappedPath, APathThatLeavesTheListIsElsewhere) {
    EXPECT_EQ(map("/update/../etc/passwd"), "elsewhere");
    EXPECT_EQ(map("/var/LDA/.."), "elsewhere");
    EXPECT_EQ(map("/var/LDA/../../../../dev/null"), "elsewhere");
}

TEST(MappedPath, LookAlikesAreElsewhere) {
    for (const char* path : {"/updateX", "/updat", "/dev/fb01", "/dev/fb0/x", "/dev/fb", "/dev/kmsg2",
                             "/var/LDAX/a", "/var/lda/a", "/var", "/dev", "/tmp/post-data/x", "/", "",
                             "update/x", "dev/kmsg", "./update", "/etc/update/x"}) {
        EXPECT_EQ(map(path), "elsewhere") << path;
    }
}

TEST(MappedPath, NothingIsMappedWithoutARootOrAPath) {
    char out[PATH_MAX];
    EXPECT_EQ(mappedPath(nullptr, "/dev/fb0", out, sizeof out), PathKind::Elsewhere);
    EXPECT_EQ(mappedPath("/root", nullptr, out, sizeof out), PathKind::Elsewhere);
}

TEST(MappedPath, FitsToTheLastByteOrIsTooLong) {
    EXPECT_EQ(map("/update/x", sizeof "/root/update/x"), "/root/update/x");
    EXPECT_EQ(map("/update/x", sizeof "/root/update/x" - 1), "too long");
    EXPECT_EQ(map("/update/", sizeof "/root/update/" - 1), "too long");
    EXPECT_EQ(map("/update/" + std::string(PATH_MAX - 9, 'x')), "too long");
    // No system call takes it, so it is for the system call to say so.
    EXPECT_EQ(map("/update/" + std::string(PATH_MAX - 8, 'x')), "elsewhere");
    EXPECT_EQ(map(std::string(PATH_MAX - 10, '/') + "update/x"), "/root/update/x");
}

TEST(MappedName, ThePrefixGoesBehindTheSlash) {
    char out[16];
    EXPECT_TRUE(mappedName("vd-1-", "/MemApp", out, sizeof out));
    EXPECT_STREQ(out, "/vd-1-MemApp");
    EXPECT_TRUE(mappedName("vd-1-", "MemApp", out, sizeof out));
    EXPECT_STREQ(out, "/vd-1-MemApp");
    EXPECT_TRUE(mappedName("vd-1-", "/123456789", out, sizeof out));
    EXPECT_FALSE(mappedName("vd-1-", "/1234567890", out, sizeof out));
}

} // namespace
