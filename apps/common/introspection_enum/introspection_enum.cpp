#include "apps/common/introspection_enum/introspection_enum.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/introspection/catalogue.h"

#include <string_view>
#include <unordered_map>

namespace {

using NameIndex = std::unordered_map<std::string_view, std::uint32_t>;

const EnumDescriptor& enumAt(std::uint32_t enumeration) {
    if (enumeration >= ENUM_ARRAY_SIZE)
        throwError(__FILE__, __LINE__, "Index exceeds limit");
    return ENUM_ARRAY[enumeration];
}

NameIndex indexNames() {
    NameIndex names;
    for (std::uint32_t enumeration = 0; enumeration < ENUM_ARRAY_SIZE; ++enumeration)
        names.emplace(ENUM_ARRAY[enumeration].name, enumeration);
    return names;
}

} // namespace

std::uint32_t IntrospectionEnum::getEnumCount() {
    return ENUM_ARRAY_SIZE;
}

CatalogueText IntrospectionEnum::getEnumName(std::uint32_t enumeration) {
    return enumAt(enumeration).name;
}

std::uint32_t IntrospectionEnum::getEnumEntryCount(std::uint32_t enumeration) {
    return enumAt(enumeration).entryCount;
}

CatalogueText IntrospectionEnum::getEnumEntryName(std::uint32_t enumeration, std::uint32_t entry) {
    const EnumDescriptor& row = enumAt(enumeration);
    if (entry >= row.entryCount)
        throwError(__FILE__, __LINE__, "Index exceeds limit");
    return row.entries[entry];
}

std::uint32_t IntrospectionEnum::getEnumIndex(const std::string& name) {
    // The variable tree calls this for each of its enumerations; a linear search would dominate its cost.
    static const NameIndex names = indexNames();
    const auto found = names.find(name);
    if (found == names.end())
        throwError(__FILE__, __LINE__, "Unknown enum \"%s\"", name.c_str());
    return found->second;
}

std::string IntrospectionEnum::printEnum(const std::string& value, const std::string& type) {
    const EnumDescriptor& row = enumAt(getEnumIndex(type));
    std::string out = "{ \"value\": \"";
    out += value;
    out += '"';
    out += ", \"type\": \"";
    out += type;
    out += '"';
    out += ", \"textid\": [ ";
    for (std::uint32_t entry = 0; entry < row.entryCount; ++entry) {
        out += entry == 0 ? "\"" : ",\"";
        out += row.entries[entry];
        out += '"';
    }
    out += "]}";
    return out;
}
