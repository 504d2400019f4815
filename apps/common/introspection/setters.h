#pragma once

#include "apps/common/introspection/catalogue.h"
#include "apps/common/introspection/store.h"
#include "apps/common/introspection/valueconversion.h"

#include <string>
#include <type_traits>

/// Values to text and back: the functions that the generated descriptors point to. Generated code includes no
/// other header.
///
/// A getter reads at the variable's storage address. A setter finds the variable in the catalogue, compares,
/// stores, and posts `event` if the value changes. It returns the empty text on success, else the error text;
/// after an error nothing has changed and nothing is posted, except where stated. No setter throws for a bad
/// value. Posting throws std::runtime_error without a broker; the value is stored then.
///
/// For integers, floats, booleans and enumerations event.arg1 selects the element: 0 the variable itself, 1
/// the element event.arg2. For any other arg1, and for an element outside the variable, a setter stores
/// nothing and returns success. Strings and buffers have no elements and ignore both words; a structure's
/// element is event.arg2.

/// The 32-bit word at element `index`, "%d".
std::string getIntIntrospection(void* address, int index);
/// The float at element `index`, "%f": always six decimals.
std::string getFloatIntrospection(void* address, int index);
/// "true" if byte `index` is not zero, else "false".
std::string getBoolIntrospection(void* address, int index);
/// The zero-terminated text at `address`, whatever the index. REQUIRES: a terminator. Descriptors use the
/// form with the field's capacity below, because another process may leave a field without one.
std::string getStringIntrospection(void* address, int index);
/// `size` bytes as two lowercase hexadecimal digits each.
std::string getBufferIntrospection(void* address, unsigned int size);
/// The name of the entry that the word at element `index` selects. A value that is no entry is logged at
/// Error and reads as "INVALID_VALUE:" and the value as unsigned decimal.
std::string getEnumIntrospection(const EnumDescriptor& enumeration, void* address, int index);
/// Element `index` as compact JSON object, member name to value in order of declaration: numbers and booleans
/// as such (a float in its shortest exact form, null when it is not finite), enumerations as
/// getEnumIntrospection, text escaped. Throws the JSON library's type_error when a text is not valid UTF-8.
std::string getStructureIntrospection(const StructureDescriptor& structure, void* address, int index);

/// Takes the forms of strtol with base detection; what follows the number is ignored. Fails outside 32 bits
/// with "Can't convert <value> to int".
std::string setIntIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                const char* value);
/// Takes the forms of strtof, infinity and not-a-number included. Fails with "Can't convert <value> to float"
/// without a number and for one that is too large for a float; one too small is stored as zero or denormal.
std::string setFloatIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                  const char* value);
/// Takes exactly "true" or "false". Fails with "Value has to be 'true' or 'false'".
std::string setBoolIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                 const char* value);
/// Takes any text and cuts it at capacity - 1 bytes, before a UTF-8 character that does not fit whole. Fills
/// the rest of the field with zeros. Always posts. Fails with "Can't convert <value> to string" if the
/// capacity in the catalogue is not a number.
std::string setStringIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                   const char* value);
/// Takes pairs of hexadecimal digits for at most `size` bytes; a single last digit is the high nibble. Always
/// posts on success. Fails with "Can't convert <value> to buffer"; bytes before the bad pair stay written.
std::string setBufferIntrospection(char* base, unsigned int size, unsigned int mem, unsigned int var,
                                   Notify event, const char* value);
/// Takes an entry's exact name. Fails with "<value> is not part of enum <enumeration>".
std::string setEnumIntrospection(const EnumDescriptor& enumeration, char* base, unsigned int mem,
                                 unsigned int var, Notify event, const char* value);
/// Sets the members that `object` names in element event.arg2, all or none. A member "Index" is skipped; of a
/// member named twice the later value counts. Members take the forms of the setters above, but a text that
/// does not fit its field fails instead of being cut. Fails with "Index <i> is outside of <variable>
/// (<count>)", "<structure> has no member <name>", "<structure>.<member>: <reason>", where the reason is the
/// error text of the member's base type, or says that a text does not fit or holds a zero character, or that
/// the value is nested.
std::string setStructureJson(const StructureDescriptor& structure, char* base, unsigned int mem,
                             unsigned int var, Notify event, const JsonObject& object);
/// setStructureJson from the text of a JSON object, whose values are strings, numbers or booleans. Fails also
/// with "Can't convert <value> to <structure>".
std::string setStructureIntrospection(const StructureDescriptor& structure, char* base, unsigned int mem,
                                      unsigned int var, Notify event, const char* value);

/// Stores `value` and posts `event` if the value's bytes differ from the target's. Throws what postEvent
/// throws; the value is stored then.
template <typename T>
void setVariable(T& target, Notify event, const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    storeAndPost(&target, &value, sizeof(T), event);
}

// The forms for the descriptors of fields whose length is part of the type.

/// The characters before the first zero byte, at most CAPACITY.
template <unsigned int CAPACITY>
std::string getStringIntrospection(void* address, int /*index*/) {
    return fieldText(static_cast<const char*>(address), CAPACITY);
}

template <unsigned int SIZE>
std::string getBufferIntrospection(void* address, int /*index*/) {
    return getBufferIntrospection(address, SIZE);
}

template <unsigned int SIZE>
std::string setBufferIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                   const char* value) {
    return setBufferIntrospection(base, SIZE, mem, var, event, value);
}
