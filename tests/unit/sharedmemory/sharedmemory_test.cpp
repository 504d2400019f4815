#include "apps/common/sharedmemory/sharedmemory.h"

#include "tests/unit/diagnostics/logcapture.h"

#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

class SharedMemoryTest : public testing::Test {
protected:
    LogCapture log_;
    const std::string name_ = "unit-sharedmemory-" + std::to_string(getpid());
    const std::string file_ = "/dev/shm/" + name_;
    SharedMemory creator_{name_.c_str(), 96};
    SharedMemory memory_{name_.c_str(), 96};
};

TEST_F(SharedMemoryTest, SizeWordPrecedesTheSharedData) {
    creator_.create();
    std::strcpy(creator_.address() + 91, "last");
    memory_.open();
    EXPECT_STREQ(memory_.address() + 91, "last");
    EXPECT_EQ(std::string(memory_.address() - 4, 4), std::string("\x60\0\0\0", 4));
    EXPECT_EQ(std::filesystem::file_size(file_), 100U);
}

TEST_F(SharedMemoryTest, AddressOutlivesClose) {
    const auto address = [&] { memory_.address(); };
    EXPECT_THAT(textThrownBy(address), EndsWith(" Call open or create before asking for the address"));
    creator_.create();
    creator_.address()[95] = 'd';
    memory_.open();
    const char* const data = memory_.address();
    memory_.close();
    EXPECT_EQ(data[95], 'd');
    EXPECT_THAT(textThrownBy(address), EndsWith(" Call open or create before asking for the address"));
    memory_.open();
    EXPECT_EQ(memory_.address(), data);
}

TEST_F(SharedMemoryTest, OnlyTheCreatorRemovesTheSegment) {
    creator_.create();
    SharedMemory(name_.c_str(), 96).open();
    EXPECT_TRUE(std::filesystem::exists(file_));
    creator_.close();
    EXPECT_FALSE(std::filesystem::exists(file_));
    EXPECT_THAT(log_.messages(), IsEmpty());
    creator_.close();
    EXPECT_THAT(log_.messages(), ElementsAre("Error /" + name_ + ": No such file or directory"));
}

} // namespace
