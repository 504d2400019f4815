#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

#include <vector>

/// Changes the same variables at every step, each to another value within its bounds: a load with predictable
/// values. At step k (from 1) variable i has
///
///     a bool    (k + i) odd
///     an int    min + (k + i) modulo (number of values, at most 1000)
///     a float   min + (bounds' distance, at most 1000) * ((k + i) modulo 1000) / 1000
///
/// where an unbounded min counts as 0.
class Soak : public Actor {
public:
    /// Takes `count` of the catalogue's int, float and bool variables, spread evenly over all memories but
    /// MemStatic, which does not change on a device. Throws std::runtime_error if there are fewer.
    explicit Soak(std::size_t count);

    void step(double timeMs) override;

private:
    std::vector<Variable> variables_;
    long step_ = 0;
};
