#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection/jsonstring.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/introspection_enum/introspection_enum.h"
#include "apps/common/values/excerpt.h"
#include "apps/common/values/readablevalue.h"
#include "apps/variables/commands.h"
#include "apps/variables/table.h"
#include "gen/code/descriptions_gen.h"

#include <cstdio>

namespace {

constexpr std::size_t SHOWN_BYTES = 60;

bool hasBounds(const VariableDescriptor& variable) {
    return variable.baseType == BaseInt || variable.baseType == BaseFloat;
}

// "int", "string(20)", "LensFile[50]"
std::string typeText(const VariableDescriptor& variable) {
    const std::string length = variable.arrayLen == nullptr ? "" : variable.arrayLen;
    if (variable.baseType == BaseString || variable.baseType == BaseBuffer)
        return std::string(variable.baseType == BaseString ? "string" : "buffer") + "(" + length + ")";
    return variable.type + (variable.isArray != 0 ? "[" + length + "]" : std::string());
}

std::string boundsText(const VariableId& id) {
    if (!hasBounds(id.descriptor()))
        return "";
    return Introspection::getVarMin(id.mem, id.var) + " to " + Introspection::getVarMax(id.mem, id.var);
}

std::vector<std::string> entries(const VariableDescriptor& variable) {
    if (variable.baseType != BaseEnum)
        return {};
    const EnumDescriptor& enumeration = ENUM_ARRAY[IntrospectionEnum::getEnumIndex(variable.type)];
    return {enumeration.entries, enumeration.entries + enumeration.entryCount};
}

std::string description(const VariableId& id) {
    std::uint32_t place = id.var;
    for (std::uint32_t mem = 0; mem < id.mem; ++mem)
        place += MEMORY_ARRAY[mem].count;
    const char* const text = VARIABLE_DESCRIPTIONS[place];
    return text == nullptr ? "" : text;
}

// The entries of an enumeration and the description.
std::string aboutText(const VariableId& id) {
    std::string text;
    for (const std::string& entry : entries(id.descriptor()))
        text += (text.empty() ? "" : ", ") + entry;
    const std::string about = description(id);
    return text + (text.empty() || about.empty() ? "" : ". ") + about;
}

std::string valueText(const VariableId& id, std::optional<std::uint32_t> element = std::nullopt) {
    return readableValue({id, element, nullptr}, *id.descriptor().memory);
}

// The start of the value. The elements of an array behind the shown bytes are not printed at all.
std::string shortValue(const VariableId& id) {
    const VariableDescriptor& variable = id.descriptor();
    if (variable.baseType != BaseStruct || variable.isArray == 0)
        return excerpt(valueText(id), SHOWN_BYTES);
    const std::uint32_t count = structureCount(variable);
    std::string text = "[";
    for (std::uint32_t i = 0; i < count && text.size() <= SHOWN_BYTES; ++i)
        (text += i == 0 ? "" : ",") += valueText(id, i);
    return excerpt(text + "]", SHOWN_BYTES);
}

void addRow(Table& table, const VariableId& id, bool isLong) {
    const VariableDescriptor& variable = id.descriptor();
    std::vector<std::string> cells;
    cells.reserve(isLong ? 7 : 4);
    cells.push_back(id.name());
    cells.push_back(typeText(variable));
    cells.push_back(boundsText(id));
    if (isLong) {
        cells.push_back(std::to_string(variable.event.id));
        cells.push_back(std::to_string(variable.location) + "+" + std::to_string(variable.size));
    }
    cells.push_back(shortValue(id));
    if (isLong)
        cells.push_back(aboutText(id));
    table.add(std::move(cells));
}

void printTable(const std::vector<VariableId>& variables, bool isLong) {
    Table table;
    if (isLong)
        table.add({"VARIABLE", "TYPE", "BOUNDS", "EVENT", "PLACE", "VALUE", "ABOUT"});
    else
        table.add({"VARIABLE", "TYPE", "BOUNDS", "VALUE"});
    for (const VariableId& id : variables)
        addRow(table, id, isLong);
    table.print();
}

// ,"name":
void appendKey(std::string& out, const char* name) {
    out += out.back() == '{' ? "\"" : ",\"";
    out.append(name) += "\":";
}

void appendText(std::string& out, const char* name, const std::string& text) {
    appendKey(out, name);
    appendJsonString(out, text);
}

// `json` is a JSON value.
void appendValue(std::string& out, const char* name, const std::string& json) {
    appendKey(out, name);
    out += json;
}

std::string entriesJson(const VariableDescriptor& variable) {
    std::string text = "[";
    for (const std::string& entry : entries(variable)) {
        text += text.size() == 1 ? "" : ",";
        appendJsonString(text, entry);
    }
    return text + "]";
}

void appendPlace(std::string& out, const VariableId& id) {
    const VariableDescriptor& variable = id.descriptor();
    appendValue(out, "event", std::to_string(variable.event.id));
    appendValue(out, "location", std::to_string(variable.location));
    appendValue(out, "size", std::to_string(variable.size));
    if (variable.baseType == BaseEnum)
        appendValue(out, "entries", entriesJson(variable));
    if (const std::string about = description(id); !about.empty())
        appendText(out, "about", about);
}

std::string jsonRow(const VariableId& id, bool isLong) {
    const VariableDescriptor& variable = id.descriptor();
    std::string row = "{";
    appendText(row, "variable", id.name());
    appendText(row, "type", typeText(variable));
    if (hasBounds(variable)) {
        appendValue(row, "min", Introspection::getVarMin(id.mem, id.var));
        appendValue(row, "max", Introspection::getVarMax(id.mem, id.var));
    }
    if (isLong)
        appendPlace(row, id);
    appendValue(row, "value", valueText(id));
    return row + "}";
}

} // namespace

int list(const ListOptions& options) {
    const std::vector<VariableId> variables = matchingVariables(options.patterns);
    if (!options.isJson) {
        printTable(variables, options.isLong);
        return 0;
    }
    for (std::size_t i = 0; i < variables.size(); ++i)
        std::printf("%s%s", i == 0 ? "[" : ",\n ", jsonRow(variables[i], options.isLong).c_str());
    std::puts("]");
    return 0;
}
