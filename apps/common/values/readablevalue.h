#pragma once

#include "apps/common/values/reference.h"

#include <string>

/// The value in the form of plainvalue.h, of which only texts differ: a question mark is in the place of each
/// byte that is not UTF-8, so that a text that another process has stored wrongly never hides a value.
std::string readableValue(const Reference& reference, char* base);
