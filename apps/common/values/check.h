#pragma once

#include "apps/common/values/reference.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

/// What a variable or a member of a structure accepts.
struct Acceptance {
    std::int32_t baseType;             ///< a BaseType, not BaseStruct
    std::uint32_t capacity;            ///< bytes of a string's field or of a buffer
    const EnumDescriptor* enumeration; ///< null unless it is one
    std::string min;                   ///< of a number, as text
    std::string max;

    static Acceptance ofVariable(const VariableId& variable);
    static Acceptance ofMember(const MemberDescriptor& member);
};

/// The text that the setter takes for `value`. Throws Refusal, whose text begins with `name`.
std::string acceptedText(const Acceptance& acceptance, const std::string& name, const nlohmann::json& value);
