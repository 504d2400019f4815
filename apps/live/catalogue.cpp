#include "apps/live/catalogue.h"

#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection/jsonstring.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/values/check.h"
#include "gen/code/descriptions_gen.h"

namespace {

const char* typeName(std::int32_t baseType) {
    static constexpr const char* NAMES[] = {"int",    "float",       "bool",     "string",
                                            "buffer", "enumeration", "structure"};
    return NAMES[baseType];
}

void appendMember(std::string& out, const char* name, const std::string& text) {
    out.append(",\"").append(name).append("\":").append(text);
}

std::string quoted(const char* text) {
    std::string out;
    appendJsonString(out, text);
    return out;
}

// Appends `"name":{"type":...` with bounds, enumeration and capacity, without the closing brace.
void appendAcceptance(std::string& out, const std::string& name, const Acceptance& acceptance) {
    out += out.back() == '{' ? "\"" : ",\"";
    out.append(name).append("\":{\"type\":\"").append(typeName(acceptance.baseType)).append("\"");
    switch (acceptance.baseType) {
    case BaseInt:
    case BaseFloat:
        appendMember(out, "min", acceptance.min);
        appendMember(out, "max", acceptance.max);
        break;
    case BaseEnum:
        appendMember(out, "enumeration", quoted(acceptance.enumeration->name));
        break;
    case BaseString:
        appendMember(out, "capacity", std::to_string(acceptance.capacity - 1));
        break;
    case BaseBuffer:
        appendMember(out, "capacity", std::to_string(acceptance.capacity));
        break;
    default:
        break;
    }
}

void appendVariable(std::string& out, const VariableId& variable, const char* description) {
    const VariableDescriptor& row = variable.descriptor();
    if (row.baseType != BaseStruct) {
        appendAcceptance(out, variable.name(), Acceptance::ofVariable(variable));
    } else {
        appendAcceptance(out, variable.name(), {BaseStruct, 0, nullptr, {}, {}});
        appendMember(out, "structure", quoted(row.type));
        if (row.isArray != 0)
            appendMember(out, "length", std::to_string(structureCount(row)));
    }
    if (description != nullptr)
        appendMember(out, "description", quoted(description));
    out += '}';
}

void appendEnumeration(std::string& out, const EnumDescriptor& enumeration) {
    out += (out.back() == '{' ? "" : ",") + quoted(enumeration.name) + ":[";
    for (std::uint32_t i = 0; i < enumeration.entryCount; ++i)
        out += (i == 0 ? "" : ",") + quoted(enumeration.entries[i]);
    out += ']';
}

void appendStructure(std::string& out, const StructureDescriptor& structure) {
    out += (out.back() == '{' ? "" : ",") + quoted(structure.name) + ":{";
    for (std::uint32_t i = 0; i < structure.memberCount; ++i) {
        appendAcceptance(out, structure.members[i].name, Acceptance::ofMember(structure.members[i]));
        out += '}';
    }
    out += '}';
}

} // namespace

std::string catalogueDocument() {
    std::string out = "{\"variables\":{";
    const char* const* description = VARIABLE_DESCRIPTIONS;
    for (const VariableId& variable : matchingVariables({}))
        appendVariable(out, variable, *description++);
    out += "},\"enumerations\":{";
    for (std::uint32_t i = 0; i < ENUM_ARRAY_SIZE; ++i)
        appendEnumeration(out, ENUM_ARRAY[i]);
    out += "},\"structures\":{";
    for (std::uint32_t i = 0; i < STRUCTURE_ARRAY_SIZE; ++i)
        appendStructure(out, *STRUCTURE_ARRAY[i]);
    return out + "}}";
}
