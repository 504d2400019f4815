#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

/// The fields of a header line, or of all header lines of one part of a form.
using HeaderFields = std::map<std::string, std::string>;

/// A header has three or four fields. The limit keeps a body of nothing but header lines from taking many
/// times its own size in memory.
constexpr std::size_t MAX_HEADER_FIELDS = 1000;

/// The text without white space and double quotes at both ends.
std::string_view trimHeaderText(std::string_view text);

/// Splits one header line, such as
///
///     Content-Disposition: form-data; name="file"; filename="a.swu"
///
/// at its semicolons, and each piece at its first equals sign, all trimmed as above: here into the fields
/// "Content-Disposition: form-data" with an empty value, "name" and "filename". An existing field keeps its
/// value. At most MAX_HEADER_FIELDS are kept.
void splitHeaderLine(std::string_view line, HeaderFields& into);
