#pragma once

#include "apps/common/introspection/catalogue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Conversions between text and the base types, common to the setters and getters of variables and of
/// structure members. A conversion from text returns nothing if the text has another form or does not fit the
/// type.

/// The forms of strtol with base detection. Characters after the number are ignored.
std::optional<std::int32_t> intFromText(const char* text);
/// The forms of strtof, infinity and not-a-number included. Characters after the number are ignored; a number
/// that is too small for a float becomes zero or denormal.
std::optional<float> floatFromText(const char* text);
/// Exactly "true" or "false".
std::optional<bool> boolFromText(std::string_view text);
/// The index of the entry with exactly this name.
std::optional<std::int32_t> entryFromText(const EnumDescriptor& enumeration, std::string_view text);

/// The characters of a text field before the first zero byte, at most `capacity`.
std::string fieldText(const char* field, std::size_t capacity);
/// The entry's name. For a value that is not an entry, logs at Error and returns "INVALID_VALUE:" and the
/// value as unsigned decimal.
std::string entryText(const EnumDescriptor& enumeration, std::uint32_t value);

/// Appends the number in JSON's form; a float in the shortest form that reads back as the same float, or null
/// when it is not finite.
void appendNumber(std::string& out, std::int32_t value);
void appendNumber(std::string& out, float value);

/// "Can't convert <value> to <type>"
std::string cannotConvert(std::string_view value, std::string_view type);
/// "Value has to be 'true' or 'false'"
std::string cannotConvertToBool();
/// "<value> is not part of enum <enumeration>"
std::string cannotConvertToEntry(std::string_view value, const EnumDescriptor& enumeration);

/// The number in a text of the catalogue, such as arrayLen, min or max. Nothing for null and for another
/// text.
std::optional<std::int32_t> catalogueInt(const char* text);
std::optional<float> catalogueFloat(const char* text);
/// The number of elements of a structure variable; 1 if it is not an array.
std::uint32_t structureCount(const VariableDescriptor& variable);
