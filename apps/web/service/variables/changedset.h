#pragma once

#include "apps/common/event/events_gen.h"

#include <array>
#include <cstdint>

/// The ids of the events since the last update: bit n for event id n, word n / 32, bit n % 32.
class ChangedSet {
public:
    /// REQUIRES: id < EVENT_COUNT.
    void set(std::uint32_t id) { words_[id / 32] |= std::uint32_t{1} << id % 32; }

    /// Clears the bit. Returns whether it was set.
    bool take(std::uint32_t id) {
        const std::uint32_t bit = std::uint32_t{1} << id % 32;
        const bool wasSet = (words_[id / 32] & bit) != 0;
        words_[id / 32] &= ~bit;
        return wasSet;
    }

    bool isEmpty() const { return words_ == decltype(words_){}; }

private:
    std::array<std::uint32_t, (EVENT_COUNT + 31) / 32> words_{};
};
