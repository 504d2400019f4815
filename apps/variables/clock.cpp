#include "apps/variables/clock.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr milliseconds LONGEST = std::chrono::hours(24 * 365);

std::string timeText(system_clock::time_point time, char separator, tm* (*split)(const time_t*, tm*)) {
    const auto second = std::chrono::floor<std::chrono::seconds>(time);
    const auto ms = static_cast<int>(std::chrono::floor<milliseconds>(time - second).count());
    const time_t seconds = system_clock::to_time_t(second);
    tm parts{};
    split(&seconds, &parts);
    char text[80];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d%c%02d:%02d:%02d.%03d", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, separator, parts.tm_hour, parts.tm_min, parts.tm_sec, ms);
    return text;
}

struct Unit {
    const char* name;
    double milliseconds;
};
constexpr std::array<Unit, 5> UNITS{{{"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60'000}, {"h", 3'600'000}}};

} // namespace

std::string localTime(system_clock::time_point time) {
    return timeText(time, ' ', localtime_r);
}

std::string universalTime(system_clock::time_point time) {
    return timeText(time, 'T', gmtime_r) + "Z";
}

milliseconds durationFromText(const std::string& text) {
    double number = -1;
    const char* const textEnd = text.data() + text.size();
    const char* const unit = std::from_chars(text.data(), textEnd, number).ptr;
    for (const Unit& known : UNITS)
        if (unit != text.data() && known.name == std::string(unit, textEnd) && number >= 0 &&
            number * known.milliseconds <= static_cast<double>(LONGEST.count()))
            return milliseconds(static_cast<milliseconds::rep>(number * known.milliseconds));
    throw std::invalid_argument(text + " is not a duration; examples are 500ms, 10s, 1.5m, 2h");
}
