#include "device/preload/mapping.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace {

// The mapped path under "/root", or a word for a path that is not mapped.
std::string map(const std::string& path) {
    std::string out(PATH_MAX, '#');
    const PathKind kind = mappedPath("/root", path.c_str(), out.data(), out.size());
    return kind == PathKind::Elsewhere ? "elsewhere" : out.c_str();
}

TEST(MappedPath, SlashesAndDotsDoNotHideADevicePath) {
    const std::pair<const char*, const char*> paths[] = {
        {"/dev/mmcblk1", "/root/dev/mmcblk1"},  {"/update", "/root/update"},
        {"/var//FOR/", "/root/var/FOR/"},       {"/var//LDA/lens.tab", "/root/var/LDA/lens.tab"},
        {"//dev///kmsg", "/root/dev/kmsg"},     {"/var/./SETUPS/./x", "/root/var/SETUPS/x"},
        {"/etc/../update/x", "/root/update/x"}, {"/../../update/..x", "/root/update/..x"},
        {"/dev/fb0/", "/root/dev/fb0/"},        {"/update/.", "/root/update/"},
        {"/update/x/..", "/root/update/"},      {"/update/../etc/passwd", "elsewhere"},
        {"/var/LDA/..", "elsewhere"},           {"/var/LDA/../../../../dev/null", "elsewhere"},
    };
    for (const auto& [path, mapped] : paths)
        EXPECT_EQ(map(path), mapped) << path;
    for (const char* path : {"/updateX", "/updat", "/dev/fb01", "/dev/fb0/x", "/var/LDAX/a", "/var/lda/a",
                             "/var", "/tmp/post-data/x", "/", "", "update/x", "dev/kmsg", "./update"})
        EXPECT_EQ(map(path), "elsewhere") << path;
}

TEST(MappedName, PrefixFollowsTheSlash) {
    char out[16];
    EXPECT_TRUE(mappedName("vd-1-", "MemApp", out, sizeof out));
    EXPECT_STREQ(out, "/vd-1-MemApp");
    EXPECT_TRUE(mappedName("vd-1-", "/123456789", out, sizeof out));
    EXPECT_STREQ(out, "/vd-1-123456789");
    EXPECT_FALSE(mappedName("vd-1-", "/1234567890", out, sizeof out));
}

} // namespace
