#pragma once

#include <string>

/// Looks of a text on a terminal, as SGR parameters of ECMA-48.
enum class Style { Bold = 1, Faint = 2, Cyan = 36 };

/// The text in the style if standard output is a terminal, other than a "dumb" one, and the environment
/// variable NO_COLOR is empty or not set (no-color.org); else the text.
std::string styled(Style style, const std::string& text);
