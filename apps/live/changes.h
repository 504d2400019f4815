#pragma once

#include "apps/live/variableset.h"

#include <array>
#include <cstdint>

/// A sequence number for each variable: that of its last change. Each change gets the next number. Numbers
/// are below 2^53 until the year 2109, so that JavaScript reads them exactly.
///
/// The first numbers, one for each variable, come from the wall clock: a process that starts later begins
/// above the last number of the one before, unless the clock was set back or is not set. A client that
/// continues with a number outside of first() to last() has it from another process.
class Changes {
public:
    /// `milliseconds` since 1970 at the process's start.
    Changes(const VariableSet& variables, std::int64_t milliseconds);

    /// Counts a change of the variable.
    void mark(VariableNumber number);

    /// Leaves the next `count` events of the variable uncounted: the broker returns this process's own ones,
    /// which were marked when they were posted.
    void expectEchoes(VariableNumber number, std::uint32_t count) { echoes_[number] += count; }

    /// The broker's event. Returns whether it was counted as a change. REQUIRES: number < EVENT_COUNT.
    bool receive(VariableNumber number);

    std::uint64_t of(VariableNumber number) const { return numbers_[number]; }
    std::uint64_t last() const { return last_; }

    /// Whether a client with this number can continue.
    bool isKnown(std::uint64_t sequence) const { return sequence >= first_ && sequence <= last_; }

    /// Those of `variables` that have changed after `sequence`.
    VariableSet since(std::uint64_t sequence, const VariableSet& variables) const;

    /// The largest number of `variables`; 0 for an empty set.
    std::uint64_t newest(const VariableSet& variables) const;

private:
    std::array<std::uint64_t, EVENT_COUNT> numbers_{}; // 0 for a number without a variable
    std::array<std::uint32_t, EVENT_COUNT> echoes_{};
    std::uint64_t first_;
    std::uint64_t last_;
};
