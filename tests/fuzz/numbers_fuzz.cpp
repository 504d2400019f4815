#include "apps/common/introspection/setters.h"
#include "target.h"
#include "tests/unit/introspection/fixture.h"

#include <bit>
#include <cmath>
#include <limits>

// Texts of numbers against the C library's conversions. Input: the four bytes of a float to be printed, then
// a text to be stored as float, as integer, and to be checked against the bounds.

namespace {

template <typename T>
T stored(const char* address) {
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

void print(float value) {
    char text[64];
    snprintf(text, sizeof text, "%f", static_cast<double>(value));
    EXPECT_EQ(getFloatIntrospection(&value, 0), text);
}

void setFloat(const Variable& variable, char* base, const char* text) {
    char* end = nullptr;
    errno = 0;
    const float value = strtof(text, &end);
    const bool isRefused = end == text || (errno == ERANGE && std::isinf(value));
    const std::string answer = isRefused ? std::string("Can't convert ") + text + " to float" : "";
    EXPECT_EQ(Introspection::setVarValue(variable.mem, variable.var, text), answer);
    EXPECT_EQ(stored<std::uint32_t>(base + variable.row().location),
              std::bit_cast<std::uint32_t>(isRefused ? 0 : value));
}

void setInt(const Variable& variable, char* base, const char* text) {
    char* end = nullptr;
    errno = 0;
    const long long value = strtoll(text, &end, 0);
    const bool isRefused = end == text || errno == ERANGE || value != static_cast<std::int32_t>(value);
    const std::string answer = isRefused ? std::string("Can't convert ") + text + " to int" : "";
    EXPECT_EQ(Introspection::setVarValue(variable.mem, variable.var, text), answer);
    EXPECT_EQ(stored<std::int32_t>(base + variable.row().location), isRefused ? 0 : value);
}

template <typename Convert, typename T>
void checkBounds(const Variable& variable, const char* text, Convert convert, T min, T max) {
    std::string error;
    const bool isAccepted = Introspection::checkMinMax(variable.mem, variable.var, text, error);
    try {
        const T value = convert(text);
        EXPECT_EQ(isAccepted, min <= value && value <= max) << text;
    } catch (const std::logic_error&) {
        // Some C libraries say that a text underflows that rounds to the smallest normal number.
        const bool isSmallest = strtof(text, nullptr) == std::numeric_limits<float>::min();
        EXPECT_EQ(error, isSmallest ? "" : std::string("Can't convert \"") + text + "\"\n");
    }
}

} // namespace

void handle(std::string_view input) {
    static Memories memories;
    static const PostedEvents events;
    static const Variable FLOAT("FocusBugPlaneOffset");
    static const Variable INT("DisplayBrightness");
    print(takeNumber<float>(input));
    const std::string text(input);
    for (const Variable& variable : {FLOAT, INT})
        std::memset(memories.base(variable.mem) + variable.row().location, 0, 4);
    setFloat(FLOAT, memories.base(FLOAT.mem), text.c_str());
    setInt(INT, memories.base(INT.mem), text.c_str());
    checkBounds(
        FLOAT, text.c_str(), [](const char* t) { return std::stof(t); }, -10.0F, 10.0F);
    checkBounds(
        INT, text.c_str(), [](const char* t) { return std::stoi(t); }, 0, 10);
    events.take();
}
