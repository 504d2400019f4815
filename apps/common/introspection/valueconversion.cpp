#include "apps/common/introspection/valueconversion.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

namespace {

// In the shortest form that reads back as the same number.
template <typename T>
void appendShortest(std::string& out, T value) {
    char text[32];
    out.append(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

} // namespace

std::optional<std::int32_t> intFromText(const char* text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 0);
    // A long of 32 bits saturates and sets errno; a long of 64 bits also holds values that are too large.
    if (end == text || errno == ERANGE || !std::in_range<std::int32_t>(value))
        return std::nullopt;
    return static_cast<std::int32_t>(value);
}

std::optional<float> floatFromText(const char* text) {
    char* end = nullptr;
    errno = 0;
    const float value = std::strtof(text, &end);
    const bool isTooLarge = errno == ERANGE && std::isinf(value);
    if (end == text || isTooLarge)
        return std::nullopt;
    return value;
}

std::optional<bool> boolFromText(std::string_view text) {
    if (text == "true")
        return true;
    if (text == "false")
        return false;
    return std::nullopt;
}

std::optional<std::int32_t> entryFromText(const EnumDescriptor& enumeration, std::string_view text) {
    for (std::uint32_t entry = 0; entry < enumeration.entryCount; ++entry)
        if (text == enumeration.entries[entry])
            return static_cast<std::int32_t>(entry);
    return std::nullopt;
}

std::string fieldText(const char* field, std::size_t capacity) {
    return {field, strnlen(field, capacity)};
}

std::string entryText(const EnumDescriptor& enumeration, std::uint32_t value) {
    if (value < enumeration.entryCount)
        return enumeration.entries[value];
    LOG_MESSAGE(Error, "Value %i of enum %s is above number of entries (%i)", static_cast<int>(value),
                enumeration.name, static_cast<int>(enumeration.entryCount));
    return "INVALID_VALUE:" + std::to_string(value);
}

std::string cannotConvert(std::string_view value, std::string_view type) {
    std::string text = "Can't convert ";
    text += value;
    text += " to ";
    text += type;
    return text;
}

std::string cannotConvertToBool() {
    return "Value has to be 'true' or 'false'";
}

std::string cannotConvertToEntry(std::string_view value, const EnumDescriptor& enumeration) {
    std::string text(value);
    text += " is not part of enum ";
    text += enumeration.name;
    return text;
}

void appendNumber(std::string& out, std::int32_t value) {
    appendShortest(out, value);
}

void appendNumber(std::string& out, float value) {
    if (std::isfinite(value))
        appendShortest(out, value);
    else
        out += "null";
}

std::optional<std::int32_t> catalogueInt(const char* text) {
    if (text == nullptr)
        return std::nullopt;
    std::int32_t value = 0;
    const auto result = std::from_chars(text, text + std::strlen(text), value);
    return result.ec == std::errc() ? std::optional(value) : std::nullopt;
}

std::optional<float> catalogueFloat(const char* text) {
    return text == nullptr ? std::nullopt : floatFromText(text);
}

std::uint32_t structureCount(const VariableDescriptor& variable) {
    const std::int32_t count = variable.isArray != 0 ? catalogueInt(variable.arrayLen).value_or(0) : 1;
    return count > 0 ? static_cast<std::uint32_t>(count) : 0;
}
