#pragma once

#include "apps/common/event/notify.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// The row types of the generated catalogue's tables. Generated code checks this version at compile time.
constexpr int CATALOGUE_VERSION = 1;

/// Kinds of values, as the descriptors store them.
enum BaseType : std::int32_t {
    BaseInt = 0,    ///< signed 32-bit
    BaseFloat = 1,  ///< 32-bit IEEE
    BaseBool = 2,   ///< one byte, 0 or not
    BaseString = 3, ///< zero-terminated characters in a field of arrayLen bytes
    BaseBuffer = 4, ///< arrayLen raw bytes
    BaseEnum = 5,   ///< signed 32-bit entry index
    BaseStruct = 6, ///< a structure's fixed layout
};

/// A value in a parsed JSON object: its text, a string without its quotes, a nested object or array with its
/// brackets.
struct JsonObjectValue {
    std::string text;
    bool isNested = false;
};

/// The members of a parsed JSON object in input order, duplicates kept. Members of an array have empty keys.
using JsonObject = std::vector<std::pair<std::string, JsonObjectValue>>;

/// Turns element `index` of the variable stored at `address` into text.
using Getter = std::string (*)(void* address, int index);

/// Sets a variable from text and posts `event` on a change; `base` is its memory's base pointer. Returns the
/// empty text on success, else the error text, with the stored value unchanged.
using Setter = std::string (*)(char* base, unsigned int mem, unsigned int var, Notify event,
                               const char* value);

/// Sets the members that `object` names in the structure element event.arg2. Returns as Setter does.
using JsonSetter = std::string (*)(char* base, unsigned int mem, unsigned int var, Notify event,
                                   const JsonObject& object);

/// One variable. Rows are constant except event.arg2, which Introspection::setVarValueJson writes.
struct VariableDescriptor {
    Notify event;           ///< posted when the variable changes; the id is the variable's own
    const char* name;       ///< unique over all memories
    char* const* memory;    ///< the memory's base pointer; holds null while the segment is not mapped
    std::uint32_t location; ///< byte offset in the memory
    const char* type;       ///< the base type's name, or that of the enumeration or structure
    std::int32_t baseType;  ///< a BaseType
    Getter getter;
    Setter setter;
    const char* min;      ///< lower bound as decimal literal, or null
    const char* max;      ///< upper bound, or null
    const char* arrayLen; ///< element count; capacity of a string, byte count of a buffer; or null
    std::uint8_t isArray; ///< 1 for strings and arrays of structures
    JsonSetter setJson;   ///< null unless the variable is a structure
    std::uint32_t size;   ///< bytes of all elements together
};

/// One memory: a shared-memory segment and its variables in catalogue order.
struct MemoryDescriptor {
    const char* name;              ///< also the segment's name
    VariableDescriptor* variables; ///< `count` rows
    std::uint32_t count;
    std::uint32_t size; ///< bytes of the segment's data area
    char** basePointer; ///< start-up stores the address of the mapping there
};

/// One enumeration: a value is stored as the index of its entry.
struct EnumDescriptor {
    const char* name;
    const char* const* entries;
    const std::uint32_t& entryCount;
};

/// One member of a structure.
struct MemberDescriptor {
    const char* name;
    std::uint32_t offset;              ///< bytes from the structure's start
    std::int32_t baseType;             ///< BaseInt, BaseFloat, BaseBool, BaseString or BaseEnum
    std::uint32_t capacity;            ///< bytes of a string's field, else 0
    const EnumDescriptor* enumeration; ///< null unless the member is an enumeration
};

/// A structure's layout, for its getter and setters.
struct StructureDescriptor {
    const char* name;
    const MemberDescriptor* members; ///< in order of declaration
    std::uint32_t memberCount;
    std::uint32_t size; ///< bytes of one element
};

// Defined by the generated catalogue.
constexpr std::uint32_t MEMORY_ARRAY_SIZE = 18;
extern const MemoryDescriptor MEMORY_ARRAY[MEMORY_ARRAY_SIZE];
extern const std::uint32_t ENUM_ARRAY_SIZE;
extern const EnumDescriptor ENUM_ARRAY[];
extern const std::uint32_t STRUCTURE_ARRAY_SIZE;
extern const StructureDescriptor* const STRUCTURE_ARRAY[];
