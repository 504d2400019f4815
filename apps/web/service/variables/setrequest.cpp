#include "apps/web/service/variables/setrequest.h"

#include "apps/common/introspection/introspection.h"
#include "apps/web/service/variables/json.h"

#include <exception>
#include <optional>
#include <ostream>
#include <utility>

namespace {

std::optional<unsigned int> findMemory(const std::string& name) {
    for (unsigned int mem = 0; mem < Introspection::getMemCount(); ++mem)
        if (name == Introspection::getMemName(mem))
            return mem;
    return std::nullopt;
}

std::optional<unsigned int> findVariable(unsigned int mem, const std::string& name) {
    for (unsigned int var = 0; var < Introspection::getVarCount(mem); ++var)
        if (name == Introspection::getVarName(mem, var))
            return var;
    return std::nullopt;
}

bool isInRange(unsigned int mem, unsigned int var, const std::string& value) {
    const int baseType = Introspection::getVarBaseType(mem, var);
    if (baseType != BaseInt && baseType != BaseFloat)
        return true;
    std::string error;
    return Introspection::checkMinMax(mem, var, value.c_str(), error);
}

// The setter's result is ignored: the answer only says whether the variable exists.
void setValue(unsigned int mem, unsigned int var, const JsonObject& pairs, int index) {
    const std::string& value = pairs.back().second.text;
    if (Introspection::getVarBaseType(mem, var) == BaseStruct)
        Introspection::setVarValueJson(mem, var, pairs, index);
    else if (isInRange(mem, var, value))
        Introspection::setVarValue(mem, var, value.c_str());
}

} // namespace

bool SetRequest::parse(const std::string& body, std::ostream& errors) {
    Json json;
    std::string nested;
    const std::string* text = &body;
    for (int level = 0; level < MAX_NESTING; ++level) {
        if (!json.parse(*text)) {
            errors << "JSON parse error at " << json.errorPosition() << ".\r\n";
            return false;
        }
        pairs = json.takeResult();
        if (pairs.empty())
            return true;
        if (level == 0)
            memory = pairs.front().first;
        else if (variable.empty())
            variable = pairs.back().first;
        if (!pairs.back().second.isNested)
            return true;
        nested = std::move(pairs.back().second.text);
        text = &nested;
    }
    errors << "Nested deeper than " << MAX_NESTING << " levels.\r\n";
    return false;
}

bool SetRequest::hasValue() const {
    return !pairs.empty() && !(pairs.size() == 1 && pairs.front().first == "Index");
}

int SetRequest::elementIndex() const {
    int index = 0;
    for (const auto& [key, value] : pairs)
        if (key == "Index")
            index = std::stoi(value.text);
    return index;
}

bool SetRequest::apply() const {
    try {
        const int index = elementIndex();
        const std::optional<unsigned int> mem = findMemory(memory); // getMemIndex would log any unknown name
        const std::optional<unsigned int> var = mem ? findVariable(*mem, variable) : std::nullopt;
        if (var)
            setValue(*mem, *var, pairs, index);
        return var.has_value();
    } catch (const std::exception&) {
        return false; // bad index, broker gone: only the result reports it
    }
}
