#pragma once

#include <cstdint>

/// The bytes of a parameter block in its mapping. They are volatile because the device behind them matters: a
/// register is read and written once for each access in the code, and the stores to the card stay in the
/// order in which they are written down, so that what a power cut leaves is known.
using Block = volatile std::uint8_t*;
using ConstBlock = const volatile std::uint8_t*;

/// A 32-bit number in the machine's byte order: one access where the address is a multiple of four, as in
/// every word of a register; four accesses to bytes elsewhere.
std::uint32_t loadWord(ConstBlock address);
void storeWord(Block address, std::uint32_t word);
