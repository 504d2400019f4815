#include "apps/common/values/readablevalue.h"
#include "apps/common/values/variablejson.h"
#include "apps/variables/commands.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace {

std::string plainText(const Reference& reference) {
    return readableValue(reference, *reference.variable.descriptor().memory);
}

// As the web API prints it, which has no form for a single member.
std::string webValue(const Reference& reference) {
    const auto [mem, var] = reference.variable;
    if (reference.member != nullptr)
        return plainText(reference);
    if (reference.element)
        return valueJson(mem, var, static_cast<int>(*reference.element));
    std::string text;
    appendVariable(text, mem, var, *reference.variable.descriptor().memory);
    return text;
}

// Texts without quotes, for shell scripts.
std::string bareValue(const Reference& reference) {
    const std::string text = plainText(reference);
    const nlohmann::json value = nlohmann::json::parse(std::string_view(text), nullptr, false);
    return value.is_string() ? value.get<std::string>() : text;
}

std::vector<Reference> references(const std::string& name) {
    if (name.find_first_of("*?") == std::string::npos)
        return {Reference::parse(name)};
    std::vector<Reference> found;
    for (const VariableId& variable : matchingVariables({name}))
        found.push_back({variable, std::nullopt, nullptr});
    return found;
}

} // namespace

int get(const GetOptions& options) {
    std::vector<Reference> wanted;
    for (const std::string& name : options.names)
        for (const Reference& reference : references(name))
            wanted.push_back(reference);
    for (const Reference& reference : wanted)
        std::puts((options.isJson ? webValue(reference) : bareValue(reference)).c_str());
    return 0;
}
