#include "apps/common/introspection/store.h"

#include <cstdint>
#include <cstring>

bool storeIfChanged(void* target, const void* bytes, std::size_t size) {
    if (std::memcmp(target, bytes, size) == 0)
        return false;
    if (size == sizeof(std::uint32_t))
        std::memcpy(target, bytes, sizeof(std::uint32_t)); // the compiler makes this one instruction
    else
        std::memcpy(target, bytes, size);
    return true;
}

void storeAndPost(void* target, const void* bytes, std::size_t size, const Notify& event) {
    if (storeIfChanged(target, bytes, size))
        postEvent(event);
}
