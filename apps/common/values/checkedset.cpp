#include "apps/common/values/checkedset.h"

#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection/structures.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/values/check.h"
#include "apps/common/values/refusal.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace {

using Json = nlohmann::json;

const MemberDescriptor& requireMember(const StructureDescriptor& structure, const std::string& name,
                                      const std::string& key) {
    if (const MemberDescriptor* const member = findMember(structure, key))
        return *member;
    throw Refusal(Refusal::Reason::UnknownVariable, name + ": " + structure.name + " has no member " + key);
}

JsonObject acceptedMembers(const StructureDescriptor& structure, const std::string& name, const Json& value) {
    if (!value.is_object())
        throw Refusal(Refusal::Reason::WrongType, name + " takes an object of members");
    const std::string prefix = name + ".";
    JsonObject members;
    for (const auto& [key, content] : value.items()) {
        const Acceptance acceptance = Acceptance::ofMember(requireMember(structure, name, key));
        members.emplace_back(key, JsonObjectValue{acceptedText(acceptance, prefix + key, content), false});
    }
    return members;
}

void requireElements(const std::string& name, std::uint32_t count, const Json& value) {
    if (!value.is_array() || value.size() < count)
        throw Refusal(Refusal::Reason::WrongType,
                      name + " takes an array of " + std::to_string(count) + " elements");
    if (value.size() > count)
        throw Refusal(Refusal::Reason::TooLong, name + " takes " + std::to_string(count) + " elements, not " +
                                                    std::to_string(value.size()));
}

} // namespace

void CheckedSet::add(const std::string& name, const Json& value) {
    const Reference reference = Reference::parse(name);
    const VariableDescriptor& variable = reference.variable.descriptor();
    if (reference.member != nullptr) {
        const std::string text = acceptedText(Acceptance::ofMember(*reference.member), name, value);
        stores_.push_back({reference.variable,
                           reference.element.value_or(0),
                           {},
                           {{reference.member->name, JsonObjectValue{text, false}}}});
    } else if (variable.baseType == BaseStruct) {
        addStructure(reference, name, value);
    } else {
        stores_.push_back({reference.variable,
                           0,
                           acceptedText(Acceptance::ofVariable(reference.variable), name, value),
                           {}});
    }
}

void CheckedSet::addStructure(const Reference& reference, const std::string& name, const Json& value) {
    const VariableDescriptor& variable = reference.variable.descriptor();
    const StructureDescriptor& structure = *findStructure(variable.type);
    if (variable.isArray == 0 || reference.element) {
        stores_.push_back(
            {reference.variable, reference.element.value_or(0), {}, acceptedMembers(structure, name, value)});
        return;
    }
    const std::uint32_t count = structureCount(variable);
    requireElements(name, count, value);
    std::vector<Store> elements;
    for (std::uint32_t i = 0; i < count; ++i)
        elements.push_back({reference.variable,
                            i,
                            {},
                            acceptedMembers(structure, name + "[" + std::to_string(i) + "]", value[i])});
    stores_.insert(stores_.end(), elements.begin(), elements.end());
}

std::string CheckedSet::storeOne(const Store& store) {
    const auto [mem, var] = store.variable;
    try {
        if (store.variable.descriptor().baseType == BaseStruct)
            return Introspection::setVarValueJson(mem, var, store.members,
                                                  static_cast<std::int32_t>(store.element));
        return Introspection::setVarValue(mem, var, store.text.c_str());
    } catch (const std::runtime_error& error) {
        return error.what(); // the broker did not take the event
    }
}

void CheckedSet::store() const {
    std::string failure;
    for (const Store& store : stores_)
        if (const std::string reason = storeOne(store); failure.empty() && !reason.empty())
            failure = store.variable.name() + ": " + reason;
    if (!failure.empty())
        throw std::runtime_error(failure);
}

Json valueFromText(const Reference& reference, const std::string& text) {
    const std::int32_t baseType =
        reference.member != nullptr ? reference.member->baseType : reference.variable.descriptor().baseType;
    if (baseType == BaseString || baseType == BaseBuffer || baseType == BaseEnum)
        return text;
    const Json value = Json::parse(std::string_view(text), nullptr, false);
    return value.is_discarded() ? Json(text) : value;
}
