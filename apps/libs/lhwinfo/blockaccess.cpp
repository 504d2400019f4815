#include "apps/libs/lhwinfo/blockaccess.h"

#include <cstring>

namespace {

bool isAligned(ConstBlock address) {
    return reinterpret_cast<std::uintptr_t>(address) % alignof(std::uint32_t) == 0;
}

} // namespace

std::uint32_t loadWord(ConstBlock address) {
    if (isAligned(address))
        return *reinterpret_cast<const volatile std::uint32_t*>(address);
    std::uint8_t bytes[sizeof(std::uint32_t)];
    for (std::uint8_t& byte : bytes)
        byte = *address++;
    std::uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

void storeWord(Block address, std::uint32_t word) {
    if (isAligned(address)) {
        *reinterpret_cast<volatile std::uint32_t*>(address) = word;
        return;
    }
    std::uint8_t bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    for (const std::uint8_t byte : bytes)
        *address++ = byte;
}
