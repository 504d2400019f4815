#pragma once

#include <string>
#include <string_view>

/// Appends `text` as a JSON string, quotes included: byte for byte what the JSON library's dump() gives.
/// `text` may lie in shared memory: it is read once, so a writer that changes it meanwhile can change what is
/// appended, but never make it invalid. Throws the library's type_error when the text is not valid UTF-8;
/// `out` is then as it was. REQUIRES: `text` does not lie in `out`.
void appendJsonString(std::string& out, std::string_view text);
