#include "apps/common/introspection/setters.h"

#include "apps/common/introspection/valueconversion.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

// Longest "%f" of a float: sign, 39 digits, point, six decimals.
constexpr std::size_t FLOAT_TEXT_SIZE = 48;

// The address need not be aligned.
template <typename T>
T load(const void* address, int index) {
    T value;
    constexpr std::ptrdiff_t WIDTH = sizeof(T);
    std::memcpy(&value, static_cast<const char*>(address) + index * WIDTH, sizeof(T));
    return value;
}

} // namespace

std::string getIntIntrospection(void* address, int index) {
    return std::to_string(load<std::int32_t>(address, index));
}

std::string getFloatIntrospection(void* address, int index) {
    char text[FLOAT_TEXT_SIZE];
    const double value = load<float>(address, index);
    const auto result = std::to_chars(text, text + sizeof(text), value, std::chars_format::fixed, 6);
    return {text, result.ptr};
}

std::string getBoolIntrospection(void* address, int index) {
    // Another process may store any byte; reading it as bool would be undefined.
    return load<std::uint8_t>(address, index) != 0 ? "true" : "false";
}

std::string getStringIntrospection(void* address, int /*index*/) {
    return static_cast<const char*>(address);
}

std::string getBufferIntrospection(void* address, unsigned int size) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    const unsigned char* bytes = static_cast<const unsigned char*>(address);
    std::string text;
    text.reserve(std::size_t{size} * 2);
    for (unsigned int i = 0; i < size; ++i) {
        text += DIGITS[bytes[i] >> 4];
        text += DIGITS[bytes[i] & 0xf];
    }
    return text;
}

std::string getEnumIntrospection(const EnumDescriptor& enumeration, void* address, int index) {
    return entryText(enumeration, load<std::uint32_t>(address, index));
}
