#include "apps/libs/lhwinfo/checksum.h"

#include <array>

namespace {

constexpr std::uint32_t POLYNOMIAL = 0x04C11DB7;
constexpr std::uint32_t TOP_BIT = 0x80000000;

constexpr std::uint32_t remainderOf(std::uint32_t byte) {
    std::uint32_t remainder = byte << 24;
    for (int bit = 0; bit < 8; ++bit)
        remainder = (remainder << 1) ^ ((remainder & TOP_BIT) != 0 ? POLYNOMIAL : 0);
    return remainder;
}

constexpr std::array<std::uint32_t, 256> makeTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte)
        table[byte] = remainderOf(byte);
    return table;
}

constexpr std::array<std::uint32_t, 256> TABLE = makeTable();

} // namespace

std::uint32_t crc32Mpeg2(ConstBlock bytes, unsigned int count) {
    std::uint32_t sum = 0xFFFFFFFF;
    for (unsigned int i = 0; i < count; ++i)
        sum = (sum << 8) ^ TABLE[(sum >> 24) ^ bytes[i]];
    return sum;
}
