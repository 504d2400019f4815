#pragma once

#include "apps/libs/lhwinfo/blockaccess.h"

#include <cstdint>

/// CRC-32/MPEG-2: polynomial 0x04C11DB7, most significant bit first, starting from 0xFFFFFFFF, not inverted
/// at the end. Of no bytes it is 0xFFFFFFFF; of "123456789" it is 0x0376E6E7.
std::uint32_t crc32Mpeg2(ConstBlock bytes, unsigned int count);
