#pragma once

#include <cstddef>

/// What the command line asks for.
struct Options {
    bool isStill = false;    ///< --still: content, but nothing moves
    std::size_t changes = 0; ///< --changes N: N variables change at once, instead of the usual activity
    int intervalMs = 100;    ///< --interval MS: time between such changes
    double speed = 1;        ///< --speed FACTOR: how fast the usual activity goes
};

/// Throws std::runtime_error with the usage when an argument is unknown or a number is none or not above 0.
Options parseOptions(int count, char* const* arguments);
