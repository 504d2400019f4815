#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The place of a variable in the device's shared memory, and the event of its change, as constants. While
/// the memory is not mapped, a variable reads as 0 or empty, and storing does nothing. Storing posts the
/// event if the value changes. It throws what postEvent throws; the value is stored then.
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

/// Text in a field of `capacity` bytes. Another process may have left it without a terminator.
struct SharedText {
    SharedPlace place;
    std::size_t capacity;

    std::string read() const;
    /// Stores the text up to its first zero byte, at most capacity - 1 characters, and a terminator. A
    /// truncated text always counts as a change.
    void store(const std::string& text) const;
};
