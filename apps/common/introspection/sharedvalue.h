#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Where a variable stands in the device's shared memory, and the event that tells of its change. Plain
/// constants: nothing is looked up. While the memory is not mapped, a variable reads as 0 or empty, and
/// storing does nothing. Storing posts the event when the value really changes; it throws what postEvent
/// throws, and the value is stored then.
struct SharedPlace {
    char* const* memory; ///< the memory's base pointer
    std::size_t offset;
    std::uint32_t event;

    /// The variable's bytes, null while the memory is not mapped.
    char* address() const { return *memory == nullptr ? nullptr : *memory + offset; }
};

/// A 32-bit number or enumeration.
struct SharedInt {
    SharedPlace place;

    std::int32_t read() const;
    void store(std::int32_t value) const;
};

/// A boolean: one byte.
struct SharedFlag {
    SharedPlace place;

    /// Makes the byte 1.
    void raise() const;
};

/// Text in a field of `capacity` bytes, zero-terminated unless another process filled it to its end.
struct SharedText {
    SharedPlace place;
    std::size_t capacity;

    std::string read() const;
    /// Stores the text up to its first zero byte, at most capacity - 1 characters, and a terminator. A text
    /// that is cut always counts as a change.
    void store(const std::string& text) const;
};

/// The characters of a text field up to the first zero byte, at most `capacity`.
std::string fieldText(const char* field, std::size_t capacity);
