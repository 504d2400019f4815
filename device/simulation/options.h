#pragma once

#include <cstddef>

/// The options of the command line.
struct Options {
    bool isStill = false;    ///< --still: content without activity
    std::size_t changes = 0; ///< --changes N: N variables change at once, instead of the usual activity
    int intervalMs = 100;    ///< --interval MS: time between such changes
    double speed = 1;        ///< --speed FACTOR: speed of the usual activity's clock, up to about 100
};

/// Throws std::runtime_error with the usage if an argument is unknown or a number is not above 0.
Options parseOptions(int count, char* const* arguments);
