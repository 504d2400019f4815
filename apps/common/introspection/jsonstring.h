#pragma once

#include <string>
#include <string_view>

/// Appends `text` as a JSON string with its quotes, equal to the JSON library's dump(). `text` may be in
/// shared memory: it is read once, so the result is valid even if another process changes it meanwhile.
/// Throws the library's type_error if the text is not valid UTF-8; `out` is unchanged then. REQUIRES: `text`
/// is not in `out`.
void appendJsonString(std::string& out, std::string_view text);
