#pragma once

#include "apps/common/introspection/catalogue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Values of the base types from text and to text, without a place in memory: what the setters and getters of
/// variables and of structure members have in common. Conversions from text yield nothing when the text does
/// not fit.

/// The forms of strtol with base detection; what follows the number is ignored. Nothing without a digit and
/// outside of 32 bits.
std::optional<std::int32_t> intFromText(const char* text);
/// The forms of strtof, infinity and not-a-number included; what follows the number is ignored. Nothing
/// without a number and for one that is too large for a float; one that is too small becomes zero or
/// denormal.
std::optional<float> floatFromText(const char* text);
/// Exactly "true" or "false".
std::optional<bool> boolFromText(std::string_view text);
/// The index of the entry with exactly this name.
std::optional<std::int32_t> entryFromText(const EnumDescriptor& enumeration, std::string_view text);

/// The entry's name. A value that is no entry is logged at Error and reads as "INVALID_VALUE:" and the value
/// as unsigned decimal.
std::string entryText(const EnumDescriptor& enumeration, std::uint32_t value);

/// "Can't convert <value> to <type>"
std::string cannotConvert(std::string_view value, std::string_view type);
/// "Value has to be 'true' or 'false'"
std::string cannotConvertToBool();
/// "<value> is not part of enum <enumeration>"
std::string cannotConvertToEntry(std::string_view value, const EnumDescriptor& enumeration);

/// The number in a catalogue text such as arrayLen. Nothing when there is no text or no number.
std::optional<std::int32_t> catalogueNumber(const char* text);
/// Elements of a structure variable: its array length, 1 when it is no array.
std::uint32_t structureCount(const VariableDescriptor& variable);
