#include "apps/common/values/plainvalue.h"

#include "apps/common/introspection/jsonstring.h"
#include "apps/common/introspection/structures.h"
#include "apps/common/introspection/valueconversion.h"

#include <cstring>

namespace {

void appendStructures(std::string& out, const VariableDescriptor& variable, char* address) {
    const std::uint32_t count = structureCount(variable);
    for (std::uint32_t i = 0; i < count; ++i) {
        out += i == 0 ? "[" : ",";
        out += variable.getter(address, static_cast<int>(i));
    }
    out += count == 0 ? "[]" : "]";
}

void appendWhole(std::string& out, const VariableDescriptor& variable, char* address) {
    switch (variable.baseType) {
    case BaseFloat: {
        float value;
        std::memcpy(&value, address, sizeof value);
        return appendNumber(out, value);
    }
    case BaseString:
    case BaseBuffer:
    case BaseEnum:
        return appendJsonString(out, variable.getter(address, 0));
    case BaseStruct:
        if (variable.isArray != 0)
            return appendStructures(out, variable, address);
        [[fallthrough]];
    default:
        out += variable.getter(address, 0);
    }
}

} // namespace

void appendPlainValue(std::string& out, const Reference& reference, char* base) {
    const VariableDescriptor& variable = reference.variable.descriptor();
    if (base == nullptr) {
        out += "null";
        return;
    }
    char* const address = base + variable.location;
    const std::size_t element = reference.element.value_or(0);
    if (reference.member != nullptr)
        appendMember(out, *reference.member,
                     address + element * findStructure(variable.type)->size + reference.member->offset);
    else if (reference.element)
        out += variable.getter(address, static_cast<int>(element));
    else
        appendWhole(out, variable, address);
}

std::string plainValue(const Reference& reference) {
    std::string text;
    appendPlainValue(text, reference, *reference.variable.descriptor().memory);
    return text;
}
