#pragma once

#include "apps/common/introspection/catalogue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One variable of the catalogue.
struct VariableId {
    std::uint32_t mem = 0;
    std::uint32_t var = 0;

    const VariableDescriptor& descriptor() const { return MEMORY_ARRAY[mem].variables[var]; }
    /// "MemPersistent.DisplayBrightness"
    std::string name() const;
    bool operator<(const VariableId& other) const {
        return mem != other.mem ? mem < other.mem : var < other.var;
    }
};

/// A variable, one element of an array, or one member of a structure, as clients name them:
///
///     MemPersistent.DisplayBrightness
///     MemLens.LensFileList[2]
///     MemLens.LensFileList[2].LensFileName
///
/// The memory may be left out, because the names of variables are unique.
struct Reference {
    VariableId variable;
    std::optional<std::uint32_t> element;
    const MemberDescriptor* member = nullptr;

    /// Throws Refusal UnknownVariable or NotAnIndex.
    static Reference parse(const std::string& name);

    /// The full name, with the memory.
    std::string name() const;
};

/// The parts of a variable that have a value of their own: the members of all elements of a structure, else
/// the variable itself.
std::vector<Reference> leaves(const VariableId& variable);

/// The variables whose names match one of the patterns, all of them without a pattern, each once and in the
/// catalogue's order. Patterns are those of fnmatch (POSIX): * for any characters, ? for one. A pattern with
/// a dot is compared with "Memory.Variable", one without with the variable's own name. Throws Refusal
/// UnknownVariable for a pattern that matches nothing.
std::vector<VariableId> matchingVariables(const std::vector<std::string>& patterns);
