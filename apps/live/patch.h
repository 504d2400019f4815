#pragma once

#include "apps/live/variableset.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

class Changes;
class CheckedSet;
class PresentValues;

/// Stores the values of a JSON object by their names, all or none: {"MemPersistent.DisplayBrightness": 7}.
/// Names and values are those of CheckedSet. Throws Problem: 400 for a body that is no such object or has a
/// name twice or beside a part of it, 413 for too many names or too deep a value, 422 with all refusals, the
/// first thousand of them, 412 if `unchangedSince` is given and a named variable has changed after that
/// sequence number. Nothing is stored then. 500 if the broker does not take an event; the values are stored.
class Patch {
public:
    /// Names of variables and of members together, and commas: the present values of all variables have
    /// 10,934 names.
    static constexpr std::size_t MAX_NAMES = 16384;
    static constexpr int MAX_DEPTH = 8;

    /// Calls `changed` for each variable that is not what it was.
    Patch(PresentValues& values, Changes& changes, std::function<void(VariableNumber)> changed)
        : values_(values), changes_(changes), changed_(std::move(changed)) {}

    struct Stored {
        std::string document;    ///< the names and the values that are stored now
        std::size_t count = 0;   ///< names
        VariableSet variables{}; ///< the variables that they belong to
    };

    Stored apply(const std::string& body, std::optional<std::uint64_t> unchangedSince);

private:
    std::string store(VariableNumber number, const CheckedSet& value);

    PresentValues& values_;
    Changes& changes_;
    std::function<void(VariableNumber)> changed_;
};
