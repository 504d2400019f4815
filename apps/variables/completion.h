#pragma once

#include "apps/variables/command.h"

#include <string>
#include <vector>

/// What the last of `words`, the command line after the program's name, can be completed to: commands,
/// options, names of variables and members, entries of enumerations. A text that goes on ends in '.' or '='.
/// Names without a memory are proposed when their first character is there. Empty for files and other texts.
std::vector<std::string> completions(const std::vector<Command>& commands,
                                     const std::vector<std::string>& words);
