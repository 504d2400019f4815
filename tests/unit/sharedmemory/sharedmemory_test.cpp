#include "apps/common/sharedmemory/sharedmemory.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

class SharedMemoryTest : public testing::Test {
protected:
    ~SharedMemoryTest() override { shm_unlink(segment_.c_str()); }

    /// A segment of another process with these bytes.
    void makeSegment(const std::string& bytes) const {
        const int fd = shm_open(segment_.c_str(), O_CREAT | O_RDWR | O_TRUNC, 0600);
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        close(fd);
    }

    const std::string name_ = "unit-sharedmemory-" + std::to_string(getpid());
    const std::string segment_ = "/" + name_;
    SharedMemory memory_{name_.c_str(), 96};
    LogCapture log_;
};

TEST_F(SharedMemoryTest, CreatorLaysOutSizeWordAndDataThatOthersSee) {
    SharedMemory creator(name_.c_str(), 96);
    creator.create();
    std::strcpy(creator.address() + 91, "last");
    memory_.open();
    EXPECT_STREQ(memory_.address() + 91, "last");
    EXPECT_EQ(memory_.address(), memory_.address());
    EXPECT_EQ(std::string(memory_.address() - 4, 4), std::string("\x60\0\0\0", 4));
    struct stat status {};
    ASSERT_EQ(stat(("/dev/shm" + segment_).c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 100);
}

TEST_F(SharedMemoryTest, MissingSegmentIsAnErrorWithItsName) {
    EXPECT_THAT(textThrownBy([&] { memory_.open(); }),
                EndsWith(" " + segment_ + ": No such file or directory"));
}

TEST_F(SharedMemoryTest, SizesThatDisagreeAreAnErrorEachTime) {
    makeSegment(std::string("\x64\0\0\0", 4) + std::string(100, 'd'));
    memory_.open();
    for (int i = 0; i < 2; ++i)
        EXPECT_THAT(textThrownBy([&] { memory_.address(); }),
                    EndsWith(" Memory size missmatch for " + segment_ + ", requested 96, is 100."));
}

TEST_F(SharedMemoryTest, SegmentThatIsCutOffIsAnErrorAndNeverTouched) {
    const std::string whole = std::string("\x00\x30\0\0", 4) + std::string(12288, 'd');
    for (const auto& [length, found] : {std::pair{0U, 0}, {3U, 0}, {4U, 0}, {5U, 1}, {12291U, 12287}}) {
        makeSegment(whole.substr(0, length));
        SharedMemory memory(name_.c_str(), 12288);
        memory.open();
        EXPECT_THAT(textThrownBy([&] { memory.address(); }),
                    EndsWith("requested 12288, is " + std::to_string(found) + "."));
    }
}

TEST_F(SharedMemoryTest, AddressNeedsAnOpenSegmentOutlivesCloseAndIsTheSameAfterOpeningAgain) {
    const auto address = [&] { memory_.address(); };
    EXPECT_THAT(textThrownBy(address), EndsWith(" Call open or create before asking for the address"));
    makeSegment(std::string("\x60\0\0\0", 4) + std::string(96, 'd'));
    memory_.open();
    const char* const data = memory_.address();
    memory_.close();
    EXPECT_EQ(data[95], 'd');
    EXPECT_THAT(textThrownBy(address), EndsWith(" Call open or create before asking for the address"));
    memory_.open();
    EXPECT_EQ(memory_.address(), data);
}

TEST_F(SharedMemoryTest, OnlyTheCreatorRemovesTheSegmentAndLogsThatItIsGone) {
    const std::string file = "/dev/shm" + segment_;
    SharedMemory creator(name_.c_str(), 96);
    creator.create();
    SharedMemory(name_.c_str(), 96).open();
    EXPECT_EQ(access(file.c_str(), F_OK), 0);
    creator.close();
    EXPECT_NE(access(file.c_str(), F_OK), 0);
    EXPECT_THAT(log_.messages(), IsEmpty());
    creator.close();
    EXPECT_THAT(log_.messages(), ElementsAre("Error " + segment_ + ": No such file or directory"));
}

} // namespace
