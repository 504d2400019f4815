#include "apps/common/introspection/setters.h"

#include "apps/common/introspection/introspection.h"
#include "apps/common/introspection/jsonstring.h"
#include "apps/common/introspection/store.h"
#include "apps/common/introspection/structures.h"
#include "apps/common/introspection/valueconversion.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

std::size_t fieldSize(const MemberDescriptor& member) {
    switch (member.baseType) {
    case BaseBool:
        return 1;
    case BaseString:
        return member.capacity;
    default:
        return 4;
    }
}

template <typename T>
T load(const char* field) {
    T value;
    std::memcpy(&value, field, sizeof(value));
    return value;
}

template <typename T>
std::string store(char* field, T value) {
    std::memcpy(field, &value, sizeof(value));
    return {};
}

void appendEntry(std::string& out, const EnumDescriptor& enumeration, std::uint32_t value) {
    appendJsonString(out, value < enumeration.entryCount ? enumeration.entries[value]
                                                         : entryText(enumeration, value));
}

std::string convertText(const MemberDescriptor& member, const std::string& text, char* field) {
    if (text.find('\0') != std::string::npos)
        return "A text cannot hold a zero character";
    if (text.size() >= member.capacity) {
        return "A text of " + std::to_string(text.size()) + " bytes does not fit into " +
               std::to_string(member.capacity) + " with its terminator";
    }
    std::memset(field, 0, member.capacity);
    text.copy(field, text.size());
    return {};
}

// Writes the value's stored form to `field`. Returns the error text.
std::string convert(const MemberDescriptor& member, const std::string& text, char* field) {
    switch (member.baseType) {
    case BaseInt: {
        const auto number = intFromText(text.c_str());
        return number ? store(field, *number) : cannotConvert(text, "int");
    }
    case BaseFloat: {
        const auto number = floatFromText(text.c_str());
        return number ? store(field, *number) : cannotConvert(text, "float");
    }
    case BaseBool: {
        const auto flag = boolFromText(text);
        return flag ? store<std::uint8_t>(field, *flag ? 1 : 0) : cannotConvertToBool();
    }
    case BaseEnum: {
        const auto entry = entryFromText(*member.enumeration, text);
        return entry ? store(field, *entry) : cannotConvertToEntry(text, *member.enumeration);
    }
    default:
        return convertText(member, text, field);
    }
}

// The new values of one element in the element's layout, collected before any of them is stored.
class ElementChange {
public:
    explicit ElementChange(const StructureDescriptor& structure)
        : structure_(structure), values_(structure.size) {}

    // Returns the error text of the first bad pair.
    std::string take(const JsonObject& object) {
        for (const auto& [name, value] : object) {
            std::string error = name == "Index" ? std::string() : takeMember(name, value);
            if (!error.empty())
                return error;
        }
        return {};
    }

    // Writes only the members that differ, because other processes write theirs at the same time. Returns
    // whether a member differs.
    bool apply(char* element) const {
        bool changed = false;
        for (const MemberDescriptor* member : members_) {
            const std::size_t offset = member->offset;
            changed |= storeIfChanged(element + offset, values_.data() + offset, fieldSize(*member));
        }
        return changed;
    }

private:
    std::string takeMember(const std::string& name, const JsonObjectValue& value) {
        const MemberDescriptor* const member = findMember(structure_, name);
        if (member == nullptr)
            return std::string(structure_.name) + " has no member " + name;
        const std::string reason = value.isNested
                                       ? "The value has to be a single one"
                                       : convert(*member, value.text, values_.data() + member->offset);
        if (!reason.empty())
            return std::string(structure_.name) + "." + member->name + ": " + reason;
        members_.push_back(member);
        return {};
    }

    const StructureDescriptor& structure_;
    std::vector<char> values_;
    std::vector<const MemberDescriptor*> members_;
};

// Whether a member can hold the JSON value.
bool isSingle(const nlohmann::json& value) {
    return value.is_string() || value.is_number() || value.is_boolean();
}

// Reads the members as pairs. Returns false if the text is not a JSON object of single values.
bool readObject(const char* text, JsonObject& object) {
    const nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
    if (!document.is_object())
        return false;
    for (const auto& [name, value] : document.items()) {
        if (!isSingle(value))
            return false;
        object.emplace_back(
            name, JsonObjectValue{value.is_string() ? value.get<std::string>() : value.dump(), false});
    }
    return true;
}

} // namespace

const StructureDescriptor* findStructure(const char* name) {
    const auto* const end = STRUCTURE_ARRAY + STRUCTURE_ARRAY_SIZE;
    const auto* const found = std::find_if(
        STRUCTURE_ARRAY, end, [&](const auto* structure) { return std::strcmp(name, structure->name) == 0; });
    return found == end ? nullptr : *found;
}

const MemberDescriptor* findMember(const StructureDescriptor& structure, std::string_view name) {
    for (std::uint32_t i = 0; i < structure.memberCount; ++i)
        if (name == structure.members[i].name)
            return &structure.members[i];
    return nullptr;
}

void appendMember(std::string& out, const MemberDescriptor& member, const char* field) {
    switch (member.baseType) {
    case BaseInt:
        return appendNumber(out, load<std::int32_t>(field));
    case BaseFloat:
        return appendNumber(out, load<float>(field));
    case BaseBool:
        out += load<std::uint8_t>(field) != 0 ? "true" : "false";
        return;
    case BaseEnum:
        return appendEntry(out, *member.enumeration, load<std::uint32_t>(field));
    default:
        return appendJsonString(out, {field, strnlen(field, member.capacity)});
    }
}

std::string getStructureIntrospection(const StructureDescriptor& structure, void* address, int index) {
    const std::ptrdiff_t width = structure.size;
    const char* const element = static_cast<const char*>(address) + index * width;
    std::string out;
    // Enough for the usual member: name, quotes, separators, and one character for each byte of the value.
    out.reserve(structure.size + std::size_t{structure.memberCount} * 32);
    out += '{';
    for (std::uint32_t i = 0; i < structure.memberCount; ++i) {
        const MemberDescriptor& member = structure.members[i];
        out += i == 0 ? "\"" : ",\"";
        out += member.name;
        out += "\":";
        appendMember(out, member, element + member.offset);
    }
    out += '}';
    return out;
}

std::string setStructureJson(const StructureDescriptor& structure, char* base, unsigned int mem,
                             unsigned int var, Notify event, const JsonObject& object) {
    const VariableDescriptor& variable = Introspection::getVarDescriptor(mem, var);
    const std::uint32_t count = std::min(structureCount(variable), variable.size / structure.size);
    if (event.arg2 >= count) {
        return "Index " + std::to_string(static_cast<std::int32_t>(event.arg2)) + " is outside of " +
               variable.name + " (" + std::to_string(count) + ")";
    }
    ElementChange change(structure);
    std::string error = change.take(object);
    if (error.empty() && change.apply(base + variable.location + std::size_t{event.arg2} * structure.size))
        postEvent(event);
    return error;
}

std::string setStructureIntrospection(const StructureDescriptor& structure, char* base, unsigned int mem,
                                      unsigned int var, Notify event, const char* value) {
    JsonObject object;
    if (!readObject(value, object))
        return cannotConvert(value, structure.name);
    return setStructureJson(structure, base, mem, var, event, object);
}
