#pragma once

#include "apps/common/introspection/catalogue.h"

#include <cstdint>
#include <string>
#include <string_view>

/// The catalogue by memory index and variable index: names, types and bounds of the variables, and their
/// values as text.
///
/// Every operation that takes a memory index, or a memory and a variable index, throws std::runtime_error
/// with "Index exceeds limit" when one is out of range; the memory index is checked first.
class Introspection {
public:
    /// Names of the base types. Buffers have none, so the last two entries are not at the index of their
    /// BaseType.
    static const char* const BASE_TYPE_NAME_ARRAY[6];

    static std::uint32_t getMemCount();
    static CatalogueText getMemName(std::uint32_t mem);
    /// Index of the memory with exactly this name. Throws std::runtime_error with "Unknown memory "<name>"".
    static std::uint32_t getMemIndex(const std::string& name);

    static std::uint32_t getVarCount(std::uint32_t mem);
    static CatalogueText getVarName(std::uint32_t mem, std::uint32_t var);
    static CatalogueText getVarType(std::uint32_t mem, std::uint32_t var);
    /// The element count, capacity or byte count as decimal text, or null.
    static CatalogueText getVarArrayLen(std::uint32_t mem, std::uint32_t var);
    /// A BaseType.
    static std::int32_t getVarBaseType(std::uint32_t mem, std::uint32_t var);
    /// The same number as getVarBaseType, despite its name: callers rely on it.
    static std::int32_t getVarBaseTypeName(std::uint32_t mem, std::uint32_t var);
    static Notify getVarEvent(std::uint32_t mem, std::uint32_t var);
    /// The variable's row, for the setters.
    static const VariableDescriptor& getVarDescriptor(std::uint32_t mem, std::uint32_t var);
    /// Builds the index from events to variables. getVarLocation calls it once, before its first look-up.
    static void genEventToVar();
    /// The indexes of the variable with this event id. Both are 0 for an id that is not a variable's; an id
    /// beyond the table of events is also logged, as by isKnownEvent.
    static void getVarLocation(const Notify& event, std::uint32_t& mem, std::uint32_t& var);
    /// Whether the variable is a string or an array of structures. Throws std::invalid_argument if it is and
    /// its length in the catalogue is not a number.
    static bool isArray(std::uint32_t mem, std::uint32_t var);

    /// Element `index` as text, or "n/a" while the memory is not mapped. Strings and buffers have no elements
    /// and ignore the index; for other types an index outside the variable throws "Index exceeds limit".
    /// Throws what the variable's getter throws.
    static std::string getVarValue(std::uint32_t mem, std::uint32_t var, std::int32_t index);
    /// Sets the variable and posts its event on a change. Returns the empty text on success, "n/a" while the
    /// memory is not mapped, else the error text.
    static std::string setVarValue(std::uint32_t mem, std::uint32_t var, const char* value);
    /// Sets members of element `tag` of a structure, all or none; `tag` is the third word of the posted
    /// event. Returns as setVarValue does, and "<variable> is not a structure" for another type.
    static std::string setVarValueJson(std::uint32_t mem, std::uint32_t var, const JsonObject& object,
                                       std::int32_t tag);

    /// The bounds as text: the catalogue's, else those of the type; "0" for types without an order.
    static std::string getVarMin(std::uint32_t mem, std::uint32_t var);
    static std::string getVarMax(std::uint32_t mem, std::uint32_t var);
    /// Whether the value may be set: always for strings, booleans, enumerations and structures, never for
    /// buffers. A value that is not a number is refused, and `error` becomes "Can't convert "<value>"\n"; a
    /// value out of bounds is refused without an error text. Integers are read in base 10 here, while the
    /// setter detects the base: 0x10 is checked as 0, and 010 is checked as 10 and stored as 8. A float with
    /// an upper bound only must be at least the smallest positive normal number.
    static bool checkMinMax(std::uint32_t mem, std::uint32_t var, const char* value, std::string& error);

    /// `{ "value": "true", "type": "bool", "textid": [ "false", "true" ]}`
    static std::string printBool(bool value);
    /// `{"max":"10","min":"0","type":"int","value":"3"}`. Throws the JSON library's type_error when a text is
    /// not valid UTF-8.
    static std::string printValue(std::string_view value, std::string_view type, std::string_view min,
                                  std::string_view max);

    /// Keeps `pattern`, an ECMAScript regular expression, as the process's one escape pattern. Throws
    /// std::regex_error if it is not a regular expression.
    static void setEscapeCharacters(const std::string& pattern);
    /// The text with a backslash before every match of the escape pattern; unchanged while there is none.
    static std::string escape(const std::string& text);
};
