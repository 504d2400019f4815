#include "apps/common/introspection/setters.h"
#include "target.h"
#include "tests/unit/introspection/fixture.h"

#include <bit>
#include <cmath>

// Texts of floats against the C library's conversions. Input: the four bytes of a float to be printed, then a
// text to be stored.

namespace {

void print(float value) {
    char text[64];
    snprintf(text, sizeof text, "%f", static_cast<double>(value));
    EXPECT_EQ(getFloatIntrospection(&value, 0), text);
}

void store(const Variable& variable, const char* text, std::string_view bytes) {
    char* end = nullptr;
    errno = 0;
    const float value = strtof(text, &end);
    const bool isRefused = end == text || (errno == ERANGE && std::isinf(value));
    const std::string answer = isRefused ? std::string("Can't convert ") + text + " to float" : "";
    EXPECT_EQ(Introspection::setVarValue(variable.mem, variable.var, text), answer);
    EXPECT_EQ(takeNumber<std::uint32_t>(bytes), std::bit_cast<std::uint32_t>(isRefused ? 0 : value));
}

} // namespace

void handle(std::string_view input) {
    static Memories memories;
    static const PostedEvents events;
    static const Variable FLOAT("FocusBugPlaneOffset");
    print(takeNumber<float>(input));
    char* const place = memories.base(FLOAT.mem) + FLOAT.row().location;
    std::memset(place, 0, sizeof(float));
    store(FLOAT, std::string(input).c_str(), {place, sizeof(float)});
    events.take();
}
