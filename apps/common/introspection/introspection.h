#pragma once

#include "apps/common/introspection/catalogue.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Answers every question about the catalogue, and reads and sets variables as text, by memory index and
/// variable index.
///
/// Every operation that takes a memory index, or a memory and a variable index, throws std::runtime_error
/// with "Index exceeds limit" when one is out of range; the memory index is looked at first. Texts that are
/// returned as pointers belong to the catalogue and live as long as the process.
class Introspection {
public:
    /// Names of the base types that have one. There is none for buffers, so entries from the fourth on do not
    /// stand at their BaseType.
    static const char* const BASE_TYPE_NAME_ARRAY[6];

    static std::uint32_t getMemCount();
    static const char* getMemName(std::uint32_t mem);
    /// Index of the memory with exactly this name. Throws std::runtime_error with "Unknown memory "<name>"".
    static std::uint32_t getMemIndex(const std::string& name);

    static std::uint32_t getVarCount(std::uint32_t mem);
    static const char* getVarName(std::uint32_t mem, std::uint32_t var);
    static const char* getVarType(std::uint32_t mem, std::uint32_t var);
    /// The element count, capacity or byte count as decimal text, or null.
    static const char* getVarArrayLen(std::uint32_t mem, std::uint32_t var);
    /// A BaseType.
    static std::int32_t getVarBaseType(std::uint32_t mem, std::uint32_t var);
    /// The same number as getVarBaseType, despite its name: callers rely on it.
    static std::int32_t getVarBaseTypeName(std::uint32_t mem, std::uint32_t var);
    static Notify getVarEvent(std::uint32_t mem, std::uint32_t var);
    /// The variable's row, for the setters.
    static const VariableDescriptor& getVarDescriptor(std::uint32_t mem, std::uint32_t var);
    /// Finds the variable that `event` is about, by its id. Both results are 0 for an id that is no
    /// variable's; one beyond the table of events is logged at Warn.
    static void getVarLocation(const Notify& event, std::uint32_t& mem, std::uint32_t& var);
    /// Whether the variable has an array length: strings and arrays of structures do. Throws
    /// std::invalid_argument when the catalogue marks it so and its length is no number.
    static bool isArray(std::uint32_t mem, std::uint32_t var);

    /// Element `index` as text, or "n/a" while the memory is not mapped. Strings and buffers have no elements
    /// and ignore the index; for all others one outside the variable throws as an index out of range does.
    /// Throws what the variable's getter throws.
    static std::string getVarValue(std::uint32_t mem, std::uint32_t var, std::int32_t index);
    /// Sets the variable and posts its event on a change. Returns the empty text on success, "n/a" while the
    /// memory is not mapped, else the error text.
    static std::string setVarValue(std::uint32_t mem, std::uint32_t var, const char* value);
    /// Sets members of element `tag` of a structure, all or none; `tag` travels as the posted event's third
    /// word. Returns as setVarValue does; "<variable> is not a structure" for one that is none.
    static std::string setVarValueJson(std::uint32_t mem, std::uint32_t var, const JsonObject& object,
                                       std::int32_t tag);

    /// The bounds as text: the catalogue's, else those of the type. 0 for types without an order.
    static std::string getVarMin(std::uint32_t mem, std::uint32_t var);
    static std::string getVarMax(std::uint32_t mem, std::uint32_t var);
    /// Whether the value may be set. Always so for strings, booleans, enumerations and structures, never for
    /// buffers. A value that is no number yields false, and `error` is set to "Can't convert "<value>"\n";
    /// one out of bounds leaves `error` alone. Integers are read in base 10 here, while the setter detects
    /// the base: a leading 0x counts as 0, and 010 is checked as 10 and stored as 8. A float with an upper
    /// bound only must be at least the smallest positive normal number.
    static bool checkMinMax(std::uint32_t mem, std::uint32_t var, const char* value, std::string& error);

    /// `{ "value": "true", "type": "bool", "textid": [ "false", "true" ]}`
    static std::string printBool(bool value);
    /// `{"max":"10","min":"0","type":"int","value":"3"}`. Throws the JSON library's type_error when a text is
    /// not valid UTF-8.
    static std::string printValue(std::string_view value, std::string_view type, std::string_view min,
                                  std::string_view max);

    /// Keeps `pattern`, an ECMAScript regular expression, as the process's one escape pattern. Throws
    /// std::regex_error when it is none.
    static void setEscapeCharacters(const std::string& pattern);
    /// The text with a backslash before every match of the escape pattern; unchanged while there is none.
    static std::string escape(const std::string& text);
};
