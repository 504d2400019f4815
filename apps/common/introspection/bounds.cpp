#include "apps/common/introspection/introspection.h"

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
    const int lower = variable.min != nullptr ? std::stoi(variable.min) : Limits::min();
    const int upper = variable.max != nullptr ? std::stoi(variable.max) : Limits::max();
    const int number = std::stoi(value);
    return lower <= number && number <= upper;
}

// As std::stof, but that a number which rounds up to the smallest normal one is no underflow: C libraries
// take it for one on some processors and not on others.
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
    const float lower = variable.min != nullptr ? floatOf(variable.min) : Limits::min();
    const float upper = variable.max != nullptr ? floatOf(variable.max) : Limits::max();
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
        // What the standard conversions throw: no number, or one that the type does not hold.
        error = std::string("Can't convert \"") + value + "\"\n";
        return false;
    }
}
