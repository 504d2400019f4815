#include "apps/common/values/check.h"

#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/introspection_enum/introspection_enum.h"
#include "apps/common/values/excerpt.h"
#include "apps/common/values/refusal.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>

namespace {

using Json = nlohmann::json;
using Reason = Refusal::Reason;

constexpr std::size_t SHOWN_BYTES = 60;

std::string shown(const Json& value) {
    return excerpt(value.dump(-1, ' ', true, Json::error_handler_t::replace), SHOWN_BYTES);
}

[[noreturn]] void refuseType(const std::string& name, const char* expected, const Json& value) {
    throw Refusal(Reason::WrongType, name + " takes " + expected + ", not " + shown(value));
}

// Numbers are compared as doubles, which hold every int and every float.
void requireInBounds(const Acceptance& acceptance, const std::string& name, const Json& value) {
    const double number = value.get<double>();
    if (number < std::stod(acceptance.min) || number > std::stod(acceptance.max))
        throw Refusal(Reason::OutOfBounds, name + ": " + shown(value) + " is not between " + acceptance.min +
                                               " and " + acceptance.max);
}

std::string intText(const Acceptance& acceptance, const std::string& name, const Json& value) {
    if (!value.is_number() || std::trunc(value.get<double>()) != value.get<double>())
        refuseType(name, "a whole number", value);
    requireInBounds(acceptance, name, value);
    return std::to_string(value.get<std::int64_t>());
}

std::string floatText(const Acceptance& acceptance, const std::string& name, const Json& value) {
    if (!value.is_number())
        refuseType(name, "a number", value);
    requireInBounds(acceptance, name, value);
    return value.dump();
}

void requireLength(std::size_t length, std::size_t limit, const char* unit, const std::string& name) {
    if (length > limit)
        throw Refusal(Reason::TooLong, name + " takes at most " + std::to_string(limit) + " " + unit +
                                           ", not " + std::to_string(length));
}

const std::string& requireString(const std::string& name, const char* expected, const Json& value) {
    if (!value.is_string())
        refuseType(name, expected, value);
    return value.get_ref<const std::string&>();
}

bool isUtf8(const Json& text) {
    try {
        return !text.dump().empty();
    } catch (const Json::type_error&) {
        return false;
    }
}

std::string stringText(const Acceptance& acceptance, const std::string& name, const Json& value) {
    const std::string& text = requireString(name, "a text", value);
    if (!isUtf8(value))
        refuseType(name, "a text of UTF-8", value);
    if (text.find('\0') != std::string::npos)
        refuseType(name, "a text without zero characters", value);
    requireLength(text.size(), acceptance.capacity - 1, "bytes", name);
    return text;
}

std::string bufferText(const Acceptance& acceptance, const std::string& name, const Json& value) {
    constexpr const char* EXPECTED = "pairs of hexadecimal digits";
    const std::string& digits = requireString(name, EXPECTED, value);
    const auto isDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(), isDigit))
        refuseType(name, EXPECTED, value);
    requireLength(digits.size() / 2, acceptance.capacity, "bytes", name);
    return digits;
}

std::string boolText(const std::string& name, const Json& value) {
    if (!value.is_boolean())
        refuseType(name, "true or false", value);
    return value.get<bool>() ? "true" : "false";
}

std::string entryText(const EnumDescriptor& enumeration, const std::string& name, const Json& value) {
    const std::string& entry = requireString(name, "the name of an entry", value);
    if (entryFromText(enumeration, entry))
        return entry;
    std::string text = name + ": " + shown(value) + " is not an entry of " + enumeration.name + ":";
    for (std::uint32_t i = 0; i < enumeration.entryCount; ++i)
        text += (i == 0 ? " " : ", ") + std::string(enumeration.entries[i]);
    throw Refusal(Reason::NotAnEntry, text);
}

} // namespace

Acceptance Acceptance::ofVariable(const VariableId& variable) {
    const VariableDescriptor& row = variable.descriptor();
    const EnumDescriptor* const enumeration =
        row.baseType == BaseEnum ? &ENUM_ARRAY[IntrospectionEnum::getEnumIndex(row.type)] : nullptr;
    return {row.baseType, row.size, enumeration, Introspection::getVarMin(variable.mem, variable.var),
            Introspection::getVarMax(variable.mem, variable.var)};
}

Acceptance Acceptance::ofMember(const MemberDescriptor& member) {
    const bool isInt = member.baseType == BaseInt;
    return {member.baseType, member.capacity, member.enumeration, isInt ? "-2147483648" : "-3.4028235e38",
            isInt ? "2147483647" : "3.4028235e38"};
}

std::string acceptedText(const Acceptance& acceptance, const std::string& name, const Json& value) {
    switch (acceptance.baseType) {
    case BaseInt:
        return intText(acceptance, name, value);
    case BaseFloat:
        return floatText(acceptance, name, value);
    case BaseBool:
        return boolText(name, value);
    case BaseEnum:
        return entryText(*acceptance.enumeration, name, value);
    case BaseBuffer:
        return bufferText(acceptance, name, value);
    default:
        return stringText(acceptance, name, value);
    }
}
