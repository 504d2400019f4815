#pragma once

#include "apps/libs/lhwinfo/blockaccess.h"

#include <optional>
#include <string>

/// A parameter: its name, its flags, and how its value lies in a block. It holds no value and does not know
/// its place: callers pass the block and `bit`, the sum of the sizes of all parameters before it.
///
/// REQUIRES, for everything that takes a block: the block has endByte(bit) bytes.
class Parameter {
public:
    enum class Kind { String = 0, Int = 1, Bits = 3 };

    /// Flag of a parameter that cannot be set by name from text.
    static constexpr int PRIVATE = 1;
    /// Flags of a parameter that only fills the space between others.
    static constexpr int FILLER = 2;

    /// Copies `name`. `flags` are 0, PRIVATE or FILLER.
    Parameter(const char* name, int flags) : name_(name), flags_(flags) {}
    Parameter(const Parameter&) = delete;
    Parameter& operator=(const Parameter&) = delete;

    const std::string& name() const { return name_; }
    bool isPrivate() const { return (flags_ & PRIVATE) != 0; }
    bool isFiller() const { return flags_ == FILLER; }

    virtual unsigned int sizeInBits() const = 0;

    /// The value as text.
    virtual std::string value(ConstBlock block, unsigned int bit) const = 0;

    /// Stores a value, given as text or as a number. Returns false and stores nothing if the parameter does
    /// not take it: see refusal(); a text parameter takes no number. Also returns false if a number reads
    /// back as another one, as from a register that ignores writes.
    virtual bool setValue(Block block, unsigned int bit, const std::string& text) const = 0;
    virtual bool setValue(Block block, unsigned int bit, std::uint32_t number) const = 0;

    virtual Kind kind() const { return Kind::String; }

    /// The value as a number; nothing for a text parameter.
    virtual std::optional<std::uint32_t> number(ConstBlock block, unsigned int bit) const = 0;

    /// Why the parameter does not take `text`: "<name> takes at most <length> bytes", "<name> takes no zero
    /// bytes" or "<name> takes a number from 0 to <maximum>". Empty if it does.
    virtual std::string refusal(const std::string& text) const = 0;

    /// The number of bytes that a block needs for this parameter at `bit`; NOWHERE if it cannot begin there.
    virtual std::uint64_t endByte(unsigned int bit) const = 0;
    static constexpr std::uint64_t NOWHERE = UINT64_MAX;

    virtual ~Parameter() = default;

private:
    std::string name_;
    int flags_;
};

/// An unsigned number from 0 to maximum().
class NumberParameter : public Parameter {
public:
    using Parameter::Parameter;

    std::string value(ConstBlock block, unsigned int bit) const override;
    bool setValue(Block block, unsigned int bit, const std::string& text) const override;
    bool setValue(Block block, unsigned int bit, std::uint32_t number) const override;
    std::optional<std::uint32_t> number(ConstBlock block, unsigned int bit) const override;
    std::string refusal(const std::string& text) const override;

private:
    virtual std::uint32_t maximum() const = 0;
    virtual std::uint32_t load(ConstBlock block, unsigned int bit) const = 0;
    virtual void store(Block block, unsigned int bit, std::uint32_t number) const = 0;
};

/// A 32-bit number in the machine's byte order at byte (bit + 7) / 8.
class IntParameter final : public NumberParameter {
public:
    explicit IntParameter(const char* name, int flags = 0, std::uint32_t maximum = UINT32_MAX)
        : NumberParameter(name, flags), maximum_(maximum) {}

    unsigned int sizeInBits() const override { return 32; }
    Kind kind() const override { return Kind::Int; }
    std::uint64_t endByte(unsigned int bit) const override;

private:
    std::uint32_t maximum() const override { return maximum_; }
    std::uint32_t load(ConstBlock block, unsigned int bit) const override;
    void store(Block block, unsigned int bit, std::uint32_t number) const override;

    std::uint32_t maximum_;
};

/// A text of at most `length` bytes at byte bit / 8. The value ends before the first zero byte or at the end
/// of the field. Storing fills the rest of the field with zero bytes.
class StringParameter final : public Parameter {
public:
    StringParameter(const char* name, unsigned int length, int flags = 0)
        : Parameter(name, flags), length_(length) {}

    unsigned int sizeInBits() const override { return length_ * 8; }
    std::string value(ConstBlock block, unsigned int bit) const override;
    bool setValue(Block block, unsigned int bit, const std::string& text) const override;
    bool setValue(Block, unsigned int, std::uint32_t) const override { return false; }
    std::optional<std::uint32_t> number(ConstBlock, unsigned int) const override { return std::nullopt; }
    std::string refusal(const std::string& text) const override;
    std::uint64_t endByte(unsigned int bit) const override;

private:
    unsigned int length_;
};

/// A field of `width` bits in word bit / 32 of the block; the first field of a word has its highest bits:
///
///     bit mod 32 = 0     1                  27  28         widths 1, 26, 1, 4
///                  +-----+------------------+---+-------+
///     word bits    | 31  | 30             5 | 4 | 3   0 |
///                  +-----+------------------+---+-------+
///
/// Loading is one 32-bit read; storing is one read and one write and keeps the other bits of the word.
class BitsParameter final : public NumberParameter {
public:
    BitsParameter(const char* name, unsigned int width, int flags = 0)
        : NumberParameter(name, flags), width_(width) {}

    unsigned int sizeInBits() const override { return width_; }
    Kind kind() const override { return Kind::Bits; }
    std::uint64_t endByte(unsigned int bit) const override;

private:
    std::uint32_t maximum() const override { return UINT32_MAX >> (32 - width_); }
    std::uint32_t load(ConstBlock block, unsigned int bit) const override;
    void store(Block block, unsigned int bit, std::uint32_t number) const override;
    unsigned int shift(unsigned int bit) const { return 32 - bit % 32 - width_; }

    unsigned int width_;
};
