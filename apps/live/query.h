#pragma once

#include <string>
#include <string_view>
#include <vector>

/// The values of all parameters `name` of a query string, percent-decoded, each split at commas. Empty parts
/// are left out.
std::vector<std::string> queryList(std::string_view query, std::string_view name);

/// The decoded value of the first parameter `name`, empty if it is missing.
std::string queryValue(std::string_view query, std::string_view name);
