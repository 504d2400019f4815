#include "apps/live/changes.h"

#include <algorithm>

namespace {

// A process that counts fewer changes than 2048 in each millisecond begins above the one before.
constexpr int CHANGES_BITS = 11;

} // namespace

Changes::Changes(const VariableSet& variables, std::int64_t milliseconds)
    : first_(static_cast<std::uint64_t>(std::max<std::int64_t>(milliseconds, 1)) << CHANGES_BITS),
      last_(first_) {
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        if (variables[number])
            mark(number);
}

void Changes::mark(VariableNumber number) {
    numbers_[number] = ++last_;
}

bool Changes::receive(VariableNumber number) {
    if (numbers_[number] == 0)
        return false;
    if (echoes_[number] > 0) {
        --echoes_[number];
        return false;
    }
    mark(number);
    return true;
}

VariableSet Changes::since(std::uint64_t sequence, const VariableSet& variables) const {
    VariableSet changed;
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        changed[number] = variables[number] && numbers_[number] > sequence;
    return changed;
}

std::uint64_t Changes::newest(const VariableSet& variables) const {
    std::uint64_t newest = 0;
    for (VariableNumber number = 0; number < EVENT_COUNT; ++number)
        if (variables[number])
            newest = std::max(newest, numbers_[number]);
    return newest;
}
