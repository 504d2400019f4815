#include "apps/common/files/standarddescriptors.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(StandardDescriptorsDeathTest, OnlyClosedOnesAreOpened) {
    EXPECT_EXIT(
        {
            const int next = dup(STDERR_FILENO);
            close(next);
            close(STDIN_FILENO);
            close(STDOUT_FILENO);
            openStandardDescriptors();
            const bool isOpen = dup2(STDIN_FILENO, STDIN_FILENO) == 0 && write(STDOUT_FILENO, "x", 1) == 1;
            std::_Exit(isOpen && write(STDERR_FILENO, "kept", 4) == 4 && dup(0) == next ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^kept$");
}

} // namespace
