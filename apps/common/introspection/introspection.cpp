#include "apps/common/introspection/introspection.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/valueconversion.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace {

const MemoryDescriptor& memoryAt(std::uint32_t mem) {
    if (mem >= MEMORY_ARRAY_SIZE)
        throwError(__FILE__, __LINE__, "Index exceeds limit");
    return MEMORY_ARRAY[mem];
}

VariableDescriptor& variableAt(std::uint32_t mem, std::uint32_t var) {
    const MemoryDescriptor& memory = memoryAt(mem);
    if (var >= memory.count)
        throwError(__FILE__, __LINE__, "Index exceeds limit");
    return memory.variables[var];
}

// Bytes of one element, 0 for a variable without elements.
std::uint32_t elementSize(const VariableDescriptor& variable) {
    switch (variable.baseType) {
    case BaseInt:
    case BaseFloat:
    case BaseEnum:
        return 4;
    case BaseBool:
        return 1;
    case BaseStruct:
        return variable.size / std::max(structureCount(variable), 1U);
    default:
        return 0;
    }
}

void checkElement(const VariableDescriptor& variable, std::int32_t index) {
    const std::uint32_t width = elementSize(variable);
    if (width != 0 && (index < 0 || static_cast<std::uint32_t>(index) >= variable.size / width))
        throwError(__FILE__, __LINE__, "Index exceeds limit");
}

struct Place {
    std::uint32_t mem = 0;
    std::uint32_t var = 0;
};
using EventIndex = std::array<Place, EVENT_COUNT>;

// By event id; all zero for an event that is not a variable's.
EventIndex gEventIndex;
bool gIsEventIndexBuilt = false;

} // namespace

const char* const Introspection::BASE_TYPE_NAME_ARRAY[6] = {"int",    "float", "bool",
                                                            "string", "enum",  "struct"};

std::uint32_t Introspection::getMemCount() {
    return MEMORY_ARRAY_SIZE;
}

CatalogueText Introspection::getMemName(std::uint32_t mem) {
    return memoryAt(mem).name;
}

std::uint32_t Introspection::getMemIndex(const std::string& name) {
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
        if (name == MEMORY_ARRAY[mem].name)
            return mem;
    throwError(__FILE__, __LINE__, "Unknown memory \"%s\"", name.c_str());
}

std::uint32_t Introspection::getVarCount(std::uint32_t mem) {
    return memoryAt(mem).count;
}

CatalogueText Introspection::getVarName(std::uint32_t mem, std::uint32_t var) {
    return variableAt(mem, var).name;
}

CatalogueText Introspection::getVarType(std::uint32_t mem, std::uint32_t var) {
    return variableAt(mem, var).type;
}

CatalogueText Introspection::getVarArrayLen(std::uint32_t mem, std::uint32_t var) {
    return variableAt(mem, var).arrayLen;
}

std::int32_t Introspection::getVarBaseType(std::uint32_t mem, std::uint32_t var) {
    return variableAt(mem, var).baseType;
}

std::int32_t Introspection::getVarBaseTypeName(std::uint32_t mem, std::uint32_t var) {
    return variableAt(mem, var).baseType;
}

Notify Introspection::getVarEvent(std::uint32_t mem, std::uint32_t var) {
    return variableAt(mem, var).event;
}

const VariableDescriptor& Introspection::getVarDescriptor(std::uint32_t mem, std::uint32_t var) {
    return variableAt(mem, var);
}

void Introspection::genEventToVar() {
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
        for (std::uint32_t var = 0; var < MEMORY_ARRAY[mem].count; ++var) {
            const std::uint32_t id = MEMORY_ARRAY[mem].variables[var].event.id;
            if (id < EVENT_COUNT)
                gEventIndex[id] = {mem, var};
        }
    }
    gIsEventIndexBuilt = true;
}

void Introspection::getVarLocation(const Notify& event, std::uint32_t& mem, std::uint32_t& var) {
    if (!gIsEventIndexBuilt)
        genEventToVar();
    const Place place = isKnownEvent(event) ? gEventIndex[event.id] : Place{};
    mem = place.mem;
    var = place.var;
}

bool Introspection::isArray(std::uint32_t mem, std::uint32_t var) {
    const VariableDescriptor& variable = variableAt(mem, var);
    if (variable.isArray == 0)
        return false;
    const auto length = catalogueInt(variable.arrayLen);
    if (!length)
        throw std::invalid_argument("stoi");
    return *length >= 0;
}

std::string Introspection::getVarValue(std::uint32_t mem, std::uint32_t var, std::int32_t index) {
    const VariableDescriptor& variable = variableAt(mem, var);
    char* const base = *variable.memory;
    if (base == nullptr)
        return "n/a";
    checkElement(variable, index);
    return variable.getter(base + variable.location, index);
}

std::string Introspection::setVarValue(std::uint32_t mem, std::uint32_t var, const char* value) {
    const VariableDescriptor& variable = variableAt(mem, var);
    char* const base = *variable.memory;
    if (base == nullptr)
        return "n/a";
    return variable.setter(base, mem, var, variable.event, value);
}

std::string Introspection::setVarValueJson(std::uint32_t mem, std::uint32_t var, const JsonObject& object,
                                           std::int32_t tag) {
    VariableDescriptor& variable = variableAt(mem, var);
    char* const base = *variable.memory;
    if (base == nullptr)
        return "n/a";
    if (variable.setJson == nullptr)
        return std::string(variable.name) + " is not a structure";
    variable.event.arg2 = static_cast<std::uint32_t>(tag);
    return variable.setJson(base, mem, var, variable.event, object);
}
