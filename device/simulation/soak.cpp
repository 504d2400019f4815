#include "device/simulation/soak.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr long STEPS = 1000; // after which an int or float repeats its values
constexpr double LARGEST_BOUND = 1e6;

bool isCandidate(const VariableDescriptor& row) {
    return row.baseType == BaseInt || row.baseType == BaseFloat || row.baseType == BaseBool;
}

std::vector<Variable> candidates() {
    std::vector<Variable> found;
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
        for (std::uint32_t var = 0; var < MEMORY_ARRAY[mem].count; ++var) {
            const bool isStatic = std::strcmp(MEMORY_ARRAY[mem].name, "MemStatic") == 0;
            if (!isStatic && isCandidate(MEMORY_ARRAY[mem].variables[var]))
                found.emplace_back(mem, var);
        }
    }
    return found;
}

// The lower bound, or 0 for one below -LARGEST_BOUND.
double lowerBound(const VariableDescriptor& row) {
    const double bound = row.min == nullptr ? 0 : std::atof(row.min);
    return bound > -LARGEST_BOUND ? bound : 0;
}

double distance(const VariableDescriptor& row) {
    const double upper = row.max == nullptr ? STEPS : std::atof(row.max);
    return std::min<double>(upper - lowerBound(row), STEPS);
}

void setTo(Variable& variable, long count) {
    const VariableDescriptor& row = variable.row();
    if (row.baseType == BaseBool) {
        variable.setBool(count % 2 != 0);
    } else if (row.baseType == BaseInt) {
        const long values = std::min(static_cast<long>(distance(row)) + 1, STEPS);
        variable.setInt(static_cast<int>(lowerBound(row)) + static_cast<int>(count % values));
    } else {
        // Without a lower bound, zero is out of bounds.
        const double least = row.min == nullptr ? std::numeric_limits<float>::min() : lowerBound(row);
        variable.setFloat(least + distance(row) * static_cast<double>(count % STEPS) / STEPS);
    }
}

} // namespace

Soak::Soak(std::size_t count) {
    const std::vector<Variable> all = candidates();
    if (count > all.size())
        throwError(__FILE__, __LINE__, "Only %zu variables can be changed", all.size());
    for (std::size_t i = 0; i < count; ++i)
        variables_.push_back(all[i * all.size() / count]);
}

void Soak::step(double /*timeMs*/) {
    ++step_;
    long place = 0;
    for (Variable& variable : variables_)
        setTo(variable, step_ + place++);
}
