#include "apps/common/values/variablejson.h"

#include "apps/common/introspection/catalogue.h"
#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection_enum/introspection_enum.h"

#include <exception>

namespace {

std::string valueText(const VariableDescriptor& variable, char* base, int index) {
    return base == nullptr ? "n/a" : variable.getter(base + variable.location, index);
}

std::string printBounded(unsigned int mem, unsigned int var, const std::string& value,
                         const std::string& type) {
    return Introspection::printValue(value, type, Introspection::getVarMin(mem, var),
                                     Introspection::getVarMax(mem, var));
}

std::string printElement(unsigned int mem, unsigned int var, char* base, int index) {
    const VariableDescriptor& variable = MEMORY_ARRAY[mem].variables[var];
    switch (variable.baseType) {
    case BaseStruct:
        return valueText(variable, base, index);
    case BaseEnum:
        return IntrospectionEnum::printEnum(valueText(variable, base, 0), variable.type);
    case BaseBool:
        return Introspection::printBool(valueText(variable, base, index) == "true");
    case BaseBuffer:
        return printBounded(mem, var, valueText(variable, base, index), "string");
    default:
        return printBounded(mem, var, valueText(variable, base, index), variable.type);
    }
}

bool isPrintedAsArray(unsigned int mem, unsigned int var) {
    const int baseType = Introspection::getVarBaseType(mem, var);
    return baseType != BaseString && baseType != BaseBuffer && Introspection::isArray(mem, var);
}

template <typename Print>
std::string textOrError(Print print) {
    try {
        return print();
    } catch (const std::exception& exception) {
        return std::string("\"ERROR\": \"") + exception.what() + "\"";
    }
}

void appendElement(std::string& out, unsigned int mem, unsigned int var, char* base, int index) {
    out += textOrError([&] { return printElement(mem, var, base, index); });
}

} // namespace

std::string valueJson(unsigned int mem, unsigned int var, int index) {
    return textOrError([&] {
        const int element = Introspection::getVarBaseType(mem, var) == BaseEnum ? 0 : index;
        Introspection::getVarValue(mem, var, element); // throws when there is no such element
        return printElement(mem, var, *MEMORY_ARRAY[mem].basePointer, element);
    });
}

void appendVariable(std::string& out, unsigned int mem, unsigned int var, char* base) {
    if (!isPrintedAsArray(mem, var))
        return appendElement(out, mem, var, base, 0);
    const int length = std::stoi(Introspection::getVarArrayLen(mem, var));
    out += '[';
    for (int index = 0; index < length; ++index) {
        if (index > 0)
            out += ',';
        appendElement(out, mem, var, base, index);
    }
    out += ']';
}
