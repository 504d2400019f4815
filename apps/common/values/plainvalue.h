#pragma once

#include "apps/common/values/reference.h"

#include <string>

/// Appends a value as plain JSON, without type and bounds:
///
///     int, float           number; a float in the shortest form that reads back as the same float, or null
///                          when it is not finite
///     bool                 true or false
///     string, enumeration  string; a word that is no entry reads "INVALID_VALUE:<word>"
///     buffer               string of hexadecimal digits
///     structure            object of its members; an array of structures is an array of these
///
/// `base` is the start of the variable's memory, or of a copy of it. null, without a memory, prints null.
/// Throws the JSON library's type_error when a text is not valid UTF-8.
void appendPlainValue(std::string& out, const Reference& reference, char* base);

/// The value in the mapped memory.
std::string plainValue(const Reference& reference);
