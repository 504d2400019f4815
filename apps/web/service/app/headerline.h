#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

/// The fields of a header line, or of all header lines of one part of a form.
using HeaderFields = std::map<std::string, std::string, std::less<>>;

/// Fields that are kept at most. A header has three or four: the limit keeps a body that is made of nothing
/// but header lines from taking many times its own size in memory.
constexpr std::size_t MAX_HEADER_FIELDS = 1000;

/// The text without white space and double quotes at both ends.
std::string_view trimHeaderText(std::string_view text);

/// Splits one header line, such as
///
///     Content-Disposition: form-data; name="file"; filename="a.swu"
///
/// at its semicolons, and each piece at its first equals sign, all trimmed as above: here into the fields
/// "Content-Disposition: form-data" with an empty value, "name" and "filename". A field that is there keeps
/// its value; beyond MAX_HEADER_FIELDS none is added.
void splitHeaderLine(std::string_view line, HeaderFields& into);
