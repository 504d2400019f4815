#include "apps/common/introspection/setters.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection/store.h"
#include "apps/common/introspection/valueconversion.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace {

// The address of the element that `event` selects, or null if the variable does not have it. A negative index
// arrives as a large number.
char* findElement(char* base, const VariableDescriptor& variable, const Notify& event,
                  std::size_t elementSize) {
    const std::uint32_t index = event.arg1 == 0 ? 0 : event.arg2;
    if (event.arg1 > 1 || index >= variable.size / elementSize)
        return nullptr;
    return base + variable.location + index * elementSize;
}

template <typename T>
void setElement(char* base, unsigned int mem, unsigned int var, const Notify& event, T value) {
    char* const target = findElement(base, Introspection::getVarDescriptor(mem, var), event, sizeof(value));
    if (target != nullptr)
        storeAndPost(target, &value, sizeof(value), event);
}

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// Bytes of the UTF-8 character that begins with `lead`.
std::size_t characterLength(char lead) {
    const unsigned char byte = static_cast<unsigned char>(lead);
    return byte >= 0xf0 ? 4 : byte >= 0xe0 ? 3 : byte >= 0xc0 ? 2 : 1;
}

// The number of the text's bytes that fit into `limit`. A character that does not fit whole is left out, so
// that the text stays valid UTF-8. A text that is not UTF-8 is cut at the limit.
std::size_t fittingLength(const char* text, std::size_t limit) {
    const std::size_t length = strnlen(text, limit + 1);
    if (length <= limit)
        return length;
    std::size_t start = limit;
    while (start > 0 && limit - start < 3 && isContinuation(text[start]))
        --start;
    return start < limit && start + characterLength(text[start]) > limit ? start : limit;
}

unsigned int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<unsigned int>(c - '0');
    if (c >= 'a' && c <= 'f')
        return static_cast<unsigned int>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F')
        return static_cast<unsigned int>(c - 'A' + 10);
    throwError(__FILE__, __LINE__, "Not a valid hex digit: %c", c);
}

void storeHexBytes(char* target, std::size_t size, const char* digits) {
    for (std::size_t i = 0; i < size && *digits != '\0'; ++i) {
        const unsigned int high = hexDigit(*digits++);
        const unsigned int low = *digits != '\0' ? hexDigit(*digits++) : 0;
        target[i] = static_cast<char>(high << 4 | low);
    }
}

} // namespace

std::string setIntIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                const char* value) {
    const auto number = intFromText(value);
    if (!number)
        return cannotConvert(value, "int");
    setElement<std::int32_t>(base, mem, var, event, *number);
    return {};
}

std::string setFloatIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                  const char* value) {
    const auto number = floatFromText(value);
    if (!number)
        return cannotConvert(value, "float");
    setElement<float>(base, mem, var, event, *number);
    return {};
}

std::string setBoolIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                 const char* value) {
    const auto flag = boolFromText(value);
    if (!flag)
        return cannotConvertToBool();
    setElement<std::uint8_t>(base, mem, var, event, *flag ? 1 : 0);
    return {};
}

std::string setStringIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                   const char* value) {
    const VariableDescriptor& variable = Introspection::getVarDescriptor(mem, var);
    const auto capacity = catalogueInt(variable.arrayLen);
    if (!capacity || *capacity < 1)
        return cannotConvert(value, "string");
    const std::size_t field = std::min<std::size_t>(static_cast<std::size_t>(*capacity), variable.size);
    const std::size_t length = fittingLength(value, field - 1);
    char* const target = base + variable.location;
    std::memcpy(target, value, length);
    std::memset(target + length, 0, field - length);
    postEvent(event);
    return {};
}

std::string setBufferIntrospection(char* base, unsigned int size, unsigned int mem, unsigned int var,
                                   Notify event, const char* value) {
    const VariableDescriptor& variable = Introspection::getVarDescriptor(mem, var);
    try {
        storeHexBytes(base + variable.location, std::min<std::size_t>(size, variable.size), value);
    } catch (const std::runtime_error&) {
        return cannotConvert(value, "buffer");
    }
    postEvent(event);
    return {};
}

std::string setEnumIntrospection(const EnumDescriptor& enumeration, char* base, unsigned int mem,
                                 unsigned int var, Notify event, const char* value) {
    const auto entry = entryFromText(enumeration, value);
    if (!entry)
        return cannotConvertToEntry(value, enumeration);
    setElement<std::int32_t>(base, mem, var, event, *entry);
    return {};
}
