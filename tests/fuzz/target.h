#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

/// Handles one input; each target defines it. Findings are a sanitizer's report, an exception that leaves the
/// function, and an expectation that fails, which ends the program. Inputs have no effect on later ones.
void handle(std::string_view input);

/// Removes the first `size` bytes of an input, or all if it is shorter, and returns them.
inline std::string_view take(std::string_view& input, std::size_t size) {
    const std::string_view front = input.substr(0, size);
    input.remove_prefix(front.size());
    return front;
}

/// Removes the first line and its line feed, and returns it without.
inline std::string_view takeLine(std::string_view& input) {
    std::string_view line = take(input, input.find('\n'));
    take(input, 1);
    return line;
}

/// Removes an unsigned number in the machine's byte order; missing bytes are zero.
template <typename T>
T takeNumber(std::string_view& input) {
    T number = 0;
    const std::string_view bytes = take(input, sizeof number);
    std::memcpy(&number, bytes.data(), bytes.size());
    return number;
}
