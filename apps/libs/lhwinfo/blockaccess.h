#pragma once

#include <cstdint>

/// The bytes of a parameter block in its mapping. They are volatile: the compiler then accesses a register
/// exactly once per access in the code and keeps the order of stores to the card, on which the state after a
/// power cut depends.
using Block = volatile std::uint8_t*;
using ConstBlock = const volatile std::uint8_t*;

/// A 32-bit number in the machine's byte order: one access if the address is a multiple of four, as in every
/// word of a register; otherwise four byte accesses.
std::uint32_t loadWord(ConstBlock address);
void storeWord(Block address, std::uint32_t word);
