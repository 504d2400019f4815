#pragma once

#include "apps/libs/lhwinfo/blockaccess.h"

#include <cstdint>

/// CRC-32/MPEG-2: polynomial 0x04C11DB7, most significant bit first, initial value 0xFFFFFFFF, no final
/// inversion. The checksum of no bytes is 0xFFFFFFFF, that of "123456789" is 0x0376E6E7.
std::uint32_t crc32Mpeg2(ConstBlock bytes, unsigned int count);
