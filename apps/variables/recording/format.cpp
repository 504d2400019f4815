#include "apps/variables/recording/format.h"

#include "apps/common/introspection/structures.h"
#include "apps/common/introspection/valueconversion.h"
#include "apps/common/introspection_enum/introspection_enum.h"

namespace recording {

namespace {

const char* kind(std::int32_t baseType) {
    static constexpr const char* KINDS[] = {"int", "float", "bool", "string", "buffer", "enum", "struct"};
    return KINDS[baseType];
}

void appendEntries(std::string& out, const EnumDescriptor& enumeration) {
    for (std::uint32_t i = 0; i < enumeration.entryCount; ++i)
        out += (i == 0 ? " " : ",") + std::string(enumeration.entries[i]);
}

void appendMembers(std::string& out, const VariableDescriptor& variable) {
    const StructureDescriptor& structure = *findStructure(variable.type);
    out += " " + std::to_string(structureCount(variable));
    for (std::uint32_t i = 0; i < structure.memberCount; ++i) {
        const MemberDescriptor& member = structure.members[i];
        out += std::string(i == 0 ? " " : ";") + member.name + " " + kind(member.baseType) + " " +
               std::to_string(member.offset);
        if (member.enumeration != nullptr)
            appendEntries(out, *member.enumeration);
    }
}

} // namespace

std::string describe(const VariableId& id) {
    const VariableDescriptor& variable = id.descriptor();
    std::string text = id.name() + " " + kind(variable.baseType) + " " + std::to_string(variable.size);
    if (variable.baseType == BaseEnum)
        appendEntries(text, ENUM_ARRAY[IntrospectionEnum::getEnumIndex(variable.type)]);
    if (variable.baseType == BaseStruct)
        appendMembers(text, variable);
    return text;
}

std::map<std::string, VariableId> describedVariables() {
    std::map<std::string, VariableId> described;
    for (const VariableId& variable : matchingVariables({}))
        described.emplace(describe(variable), variable);
    return described;
}

std::uint32_t checksum(std::string_view bytes) {
    std::uint32_t crc = 0xffffffff;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
    }
    return ~crc;
}

void appendNumber(std::string& out, std::uint64_t number) {
    for (; number >= 0x80; number >>= 7U)
        out += static_cast<char>(number | 0x80U);
    out += static_cast<char>(number);
}

} // namespace recording
