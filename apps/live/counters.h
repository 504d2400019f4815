#pragma once

#include <cstdint>

/// What the process has done since its start, for the metrics.
struct Counters {
    std::uint64_t requests = 0;
    std::uint64_t refused = 0;     ///< answered with a status of 400 or more
    std::uint64_t connections = 0; ///< closed because of the limit
    std::uint64_t events = 0;      ///< from the broker
    std::uint64_t stored = 0;      ///< values that PATCH stored
    std::uint64_t printed = 0;     ///< messages, each for all clients that need the same
    std::uint64_t messages = 0;    ///< sent to clients
    std::uint64_t heartbeats = 0;
    std::uint64_t disconnected = 0; ///< slow clients, while messages held too much memory
    std::uint64_t late = 0;         ///< changes that were overwritten before a slow client had the one before
};
