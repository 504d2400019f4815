#pragma once

#include <string>

/// The catalogue as a JSON document: what each variable is, in the form of docs/api/live.md. It does not
/// change while the process runs. Enumerations and structures are listed once, and the variables name them.
std::string catalogueDocument();
