#pragma once

#include "apps/common/values/reference.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

/// Several new values that are all checked before the first is stored.
///
/// A value has the plain form that plainvalue.h describes. Of a structure only the given members change; an
/// array of structures takes an array with all its elements. Bounds are the catalogue's; a number needs to
/// fit the type, a text its field with the terminator, and a buffer takes pairs of hexadecimal digits.
class CheckedSet {
public:
    /// Checks one value and keeps it. Throws Refusal; the set is unchanged then.
    void add(const std::string& name, const nlohmann::json& value);

    /// Stores the values in the order in which they were added, through the variables' setters, which post
    /// the events. Throws std::runtime_error with the first reason if an event could not be posted; all
    /// values are stored then.
    void store() const;

private:
    struct Store {
        VariableId variable;
        std::uint32_t element = 0;
        std::string text;   // of a variable that is not a structure
        JsonObject members; // of a structure
    };

    void addStructure(const Reference& reference, const std::string& name, const nlohmann::json& value);
    static std::string storeOne(const Store& store);

    std::vector<Store> stores_;
};

/// The value that a text of the command line stands for: a JSON value, except that strings, buffers and
/// entries of enumerations are taken as they are.
nlohmann::json valueFromText(const Reference& reference, const std::string& text);
