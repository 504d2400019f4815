#include "apps/common/sharedmemory/samebytes.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(SameBytes, FindsADifferenceAtEachPlaceOfEachLength) {
    for (std::size_t size = 0; size <= 200; size += 1 + size / 20) {
        const std::string left(size + 4, 'x');
        std::string right = left; // differs outside of the compared bytes
        right[3] = right.back() = 'y';
        for (std::size_t at = 4; at < size; ++at) {
            EXPECT_TRUE(sameBytes(left.data() + 4, right.data() + 4, size - 1));
            right[at] = 'y';
            EXPECT_FALSE(sameBytes(left.data() + 4, right.data() + 4, size - 1)) << at << " of " << size;
            right[at] = 'x';
        }
    }
}

} // namespace
