#include "device/simulation/options.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

constexpr const char* USAGE =
    "usage: device-simulation [--still | --changes N [--interval MS] | --speed FACTOR]";

double parseNumber(const char* text) {
    char* end = nullptr;
    const double number = text == nullptr ? 0 : std::strtod(text, &end);
    if (!(number > 0 && number < 1e6) || *end != '\0')
        throw std::runtime_error(USAGE);
    return number;
}

} // namespace

Options parseOptions(int count, char* const* arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name == "--still")
            options.isStill = true;
        else if (name == "--changes")
            options.changes = static_cast<std::size_t>(parseNumber(arguments[++i]));
        else if (name == "--interval")
            options.intervalMs = static_cast<int>(parseNumber(arguments[++i]));
        else if (name == "--speed")
            options.speed = parseNumber(arguments[++i]);
        else
            throw std::runtime_error(USAGE);
    }
    return options;
}
