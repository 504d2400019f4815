#include "apps/common/introspection/introspection.h"

#include "apps/common/introspection/valueconversion.h"
#include "apps/common/introspection_enum/introspection_enum.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace {

std::string textOr(const char* text, const char* fallback) {
    return text != nullptr ? text : fallback;
}

bool isIntInBounds(const VariableDescriptor& variable, const char* value) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (variable.min == nullptr && variable.max == nullptr)
        return true;
    const int lower = catalogueInt(variable.min).value_or(Limits::min());
    const int upper = catalogueInt(variable.max).value_or(Limits::max());
    const int number = std::stoi(value);
    return lower <= number && number <= upper;
}

// As std::stof, but a number that rounds up to the smallest normal one is not an underflow: the C libraries
// of the processors differ in this.
float floatOf(const char* text) {
    char* end = nullptr;
    errno = 0;
    const float number = std::strtof(text, &end);
    if (end == text)
        throw std::invalid_argument("no number");
    if (errno == ERANGE && std::fabs(number) != std::numeric_limits<float>::min())
        throw std::out_of_range("no float");
    return number;
}

bool isFloatInBounds(const VariableDescriptor& variable, const char* value) {
    using Limits = std::numeric_limits<float>;
    if (variable.min == nullptr && variable.max == nullptr)
        return true;
    const float lower = catalogueFloat(variable.min).value_or(Limits::min());
    const float upper = catalogueFloat(variable.max).value_or(Limits::max());
    const float number = floatOf(value);
    return lower <= number && number <= upper;
}

bool isInBounds(const VariableDescriptor& variable, const char* value) {
    switch (variable.baseType) {
    case BaseBool:
    case BaseString:
    case BaseEnum:
    case BaseStruct:
        return true;
    case BaseInt:
        return isIntInBounds(variable, value);
    case BaseFloat:
        return isFloatInBounds(variable, value);
    default:
        return false;
    }
}

std::string lastEntry(const char* enumeration) {
    const std::uint32_t count =
        IntrospectionEnum::getEnumEntryCount(IntrospectionEnum::getEnumIndex(enumeration));
    return std::to_string(count - 1);
}

} // namespace

std::string Introspection::getVarMin(std::uint32_t mem, std::uint32_t var) {
    const VariableDescriptor& variable = getVarDescriptor(mem, var);
    switch (variable.baseType) {
    case BaseInt:
        return textOr(variable.min, "-2147483648");
    case BaseFloat:
        return textOr(variable.min, "-1e38");
    default:
        return "0";
    }
}

std::string Introspection::getVarMax(std::uint32_t mem, std::uint32_t var) {
    const VariableDescriptor& variable = getVarDescriptor(mem, var);
    switch (variable.baseType) {
    case BaseInt:
        return textOr(variable.max, "2147483647");
    case BaseFloat:
        return textOr(variable.max, "1e38");
    case BaseBool:
        return "1";
    case BaseString:
    case BaseBuffer:
        return textOr(variable.max, "0");
    case BaseEnum:
        return lastEntry(variable.type);
    default:
        return "0";
    }
}

bool Introspection::checkMinMax(std::uint32_t mem, std::uint32_t var, const char* value, std::string& error) {
    const VariableDescriptor& variable = getVarDescriptor(mem, var);
    try {
        return isInBounds(variable, value);
    } catch (const std::logic_error&) {
        // From the standard conversions: not a number, or too large for the type.
        error = std::string("Can't convert \"") + value + "\"\n";
        return false;
    }
}
