#include "apps/common/sharedmemory/samebytes.h"

#include <cstring>

#ifdef __arm__

#include <arm_neon.h>
#include <asm/hwcap.h>
#include <cstdint>
#include <sys/auxv.h>

namespace {

constexpr std::size_t BLOCK = 64;

using Bytes = const std::uint8_t*;

__attribute__((target("fpu=neon"))) uint8x16_t difference(Bytes left, Bytes right) {
    return veorq_u8(vld1q_u8(left), vld1q_u8(right));
}

// REQUIRES: NEON; a size that BLOCK divides.
__attribute__((target("fpu=neon"))) bool sameBlocks(Bytes left, Bytes right, std::size_t size) {
    uint8x16_t found = vdupq_n_u8(0);
    for (const Bytes end = left + size; left != end; left += BLOCK, right += BLOCK)
#pragma GCC unroll 4
        for (std::size_t at = 0; at < BLOCK; at += sizeof found)
            found = vorrq_u8(found, difference(left + at, right + at));
    const uint64x2_t words = vreinterpretq_u64_u8(found);
    return (vgetq_lane_u64(words, 0) | vgetq_lane_u64(words, 1)) == 0;
}

} // namespace

bool sameBytes(const char* left, const char* right, std::size_t size) {
    static const bool hasNeon = (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
    const std::size_t blocks = hasNeon ? size - size % BLOCK : 0;
    return (blocks == 0 ||
            sameBlocks(reinterpret_cast<Bytes>(left), reinterpret_cast<Bytes>(right), blocks)) &&
           std::memcmp(left + blocks, right + blocks, size - blocks) == 0;
}

#else

bool sameBytes(const char* left, const char* right, std::size_t size) {
    return std::memcmp(left, right, size) == 0;
}

#endif
