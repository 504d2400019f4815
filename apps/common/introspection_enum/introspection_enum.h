#pragma once

#include <cstdint>
#include <string>

/// Answers every question about the catalogue's enumerations, by index.
///
/// An index that is out of range throws std::runtime_error with "Index exceeds limit"; the enumeration's
/// index is looked at before the entry's. Texts that are returned as pointers belong to the catalogue and
/// live as long as the process.
class IntrospectionEnum {
public:
    static std::uint32_t getEnumCount();
    static const char* getEnumName(std::uint32_t enumeration);
    static std::uint32_t getEnumEntryCount(std::uint32_t enumeration);
    static const char* getEnumEntryName(std::uint32_t enumeration, std::uint32_t entry);
    /// Index of the first enumeration with exactly this name. Throws std::runtime_error with "Unknown enum
    /// "<name>"".
    static std::uint32_t getEnumIndex(const std::string& name);
    /// `{ "value": "Left", "type": "MotorSide", "textid": [ "Left","Right"]}` with the entries of the
    /// enumeration named `type`. The value is written as it is. Throws as getEnumIndex does.
    static std::string printEnum(const std::string& value, const std::string& type);
};
