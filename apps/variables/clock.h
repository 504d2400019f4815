#pragma once

#include <chrono>
#include <string>

/// The time for people, in the machine's time zone: "2026-11-22 09:03:44.123".
std::string localTime(std::chrono::system_clock::time_point time);

/// The time for programs (RFC 3339): "2026-11-22T08:03:44.123Z".
std::string universalTime(std::chrono::system_clock::time_point time);

/// A duration such as "500ms", "10s", "1.5m" or "2h"; seconds without a unit. Throws std::invalid_argument
/// with a text for people.
std::chrono::milliseconds durationFromText(const std::string& text);
