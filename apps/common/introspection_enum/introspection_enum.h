#pragma once

#include "apps/common/event/cataloguetext.h"

#include <cstdint>
#include <string>

/// The catalogue's enumerations by index.
///
/// An index that is out of range throws std::runtime_error with "Index exceeds limit"; the enumeration's
/// index is checked before the entry's.
class IntrospectionEnum {
public:
    static std::uint32_t getEnumCount();
    static CatalogueText getEnumName(std::uint32_t enumeration);
    static std::uint32_t getEnumEntryCount(std::uint32_t enumeration);
    static CatalogueText getEnumEntryName(std::uint32_t enumeration, std::uint32_t entry);
    /// Index of the first enumeration with exactly this name. Throws std::runtime_error with "Unknown enum
    /// "<name>"".
    static std::uint32_t getEnumIndex(const std::string& name);
    /// `{ "value": "Left", "type": "MotorSide", "textid": [ "Left","Right"]}` with the entries of the
    /// enumeration named `type`. The value is written as it is. Throws as getEnumIndex does.
    static std::string printEnum(const std::string& value, const std::string& type);
};
