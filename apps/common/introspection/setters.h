#pragma once

#include "apps/common/introspection/catalogue.h"

#include <string>

/// Values to text and back: the functions that the generated descriptors point to. This is the one header
/// that generated code includes.
///
/// A getter reads at the variable's storage address. A setter finds its place through the catalogue,
/// compares, stores and posts `event` only when the value changes; it returns the empty text on success, else
/// the error text, and then nothing has changed and nothing is posted, except where stated. No setter throws
/// for a bad value. Posting throws when the broker is gone (std::runtime_error); the value is stored then.
///
/// For integers, floats, booleans and enumerations event.arg1 selects the element that is set: 0 the variable
/// itself, 1 the element event.arg2. A setter given anything else, or an element outside the variable, stores
/// nothing and returns success. Strings and buffers have no elements and ignore both words; a structure's
/// element is event.arg2.

/// The 32-bit word at element `index`, "%d".
std::string getIntIntrospection(void* address, int index);
/// The float at element `index`, "%f": always six decimals.
std::string getFloatIntrospection(void* address, int index);
/// "true" if byte `index` is not zero, else "false".
std::string getBoolIntrospection(void* address, int index);
/// The characters before the first zero byte, at most `capacity`: a field that another process left without a
/// terminator is read to its end and no further.
std::string getStringIntrospection(const void* address, unsigned int capacity);
/// Every one of `size` bytes as two lowercase hexadecimal digits.
std::string getBufferIntrospection(const void* address, unsigned int size);
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
/// Takes any text, cut to capacity - 1 characters; a multi-byte UTF-8 character that the cut would split is
/// left out whole. The rest of the field becomes zero. Always posts. Fails with "Can't convert <value> to
/// string" when the catalogue's capacity is no number.
std::string setStringIntrospection(char* base, unsigned int mem, unsigned int var, Notify event,
                                   const char* value);
/// Takes pairs of hexadecimal digits for at most `size` bytes, a single last digit as high nibble. Posts when
/// all of it converted. Fails with "Can't convert <value> to buffer"; bytes before the bad pair stay written.
std::string setBufferIntrospection(char* base, unsigned int size, unsigned int mem, unsigned int var,
                                   Notify event, const char* value);
/// Takes an entry's exact name. Fails with "<value> is not part of enum <enumeration>".
std::string setEnumIntrospection(const EnumDescriptor& enumeration, char* base, unsigned int mem,
                                 unsigned int var, Notify event, const char* value);
/// Sets the members that `object` names in element event.arg2, all or none; a member "Index" is passed over,
/// and a member named twice takes the later value. Members take the forms of the setters above (an int fails
/// outside 32 bits, an enumeration takes entry names), but a text that does not fit its field fails instead
/// of being cut. Fails with "Index <i> is outside of <variable> (<count>)", "<structure> has no member
/// <name>",
/// "<structure>.<member>: <reason>"; the reason is what the member's base-type setter would fail with, that a
/// text does not fit or holds a zero character, or that the value is a nested one.
std::string setStructureJson(const StructureDescriptor& structure, char* base, unsigned int mem,
                             unsigned int var, Notify event, const JsonObject& object);
/// setStructureJson from the text of a JSON object, whose values are strings, numbers or booleans. Fails also
/// with "Can't convert <value> to <structure>".
std::string setStructureIntrospection(const StructureDescriptor& structure, char* base, unsigned int mem,
                                      unsigned int var, Notify event, const char* value);

// The forms that descriptors hold for fields whose length is part of the type.

template <unsigned int CAPACITY>
std::string getStringIntrospection(void* address, int /*index*/) {
    return getStringIntrospection(address, CAPACITY);
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
