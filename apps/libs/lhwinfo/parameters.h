#pragma once

#include "apps/libs/lhwinfo/persistentinfo.h"

/// A parameter: what it is called and how its value lies in a block. `bit` is the sum of the sizes of all
/// parameters before it.
class PersistentInfo::Base {
public:
    /// Copies `name`. `flags` are 0, PRIVATE or FILLER.
    Base(const char* name, int flags) : name_(name), flags_(flags) {}
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;

    const std::string& name() const { return name_; }
    bool isPrivate() const { return (flags_ & PRIVATE) != 0; }
    bool isFiller() const { return flags_ == FILLER; }

    virtual unsigned int sizeInBits() const = 0;

    /// The value as text. REQUIRES, here and in what follows: the block has endByte(bit) bytes.
    virtual std::string value(ConstBlock block, unsigned int bit) const = 0;

    /// Stores the value that the text says. False, and nothing is stored, when refusal(text) has a reason.
    virtual bool setValue(Block block, unsigned int bit, const std::string& text) const = 0;

    virtual Kind kind() const { return Kind::String; }

    /// Why the text is no value of this parameter: empty when it is one, otherwise "<name> takes at most
    /// <length> bytes", "<name> takes no zero bytes" or "<name> takes a number from 0 to <maximum>".
    virtual std::string refusal(const std::string& text) const = 0;

    /// How many bytes of the block must be there for a parameter at `bit`; NOWHERE when it cannot begin
    /// there.
    virtual std::uint64_t endByte(unsigned int bit) const = 0;
    static constexpr std::uint64_t NOWHERE = UINT64_MAX;

    virtual ~Base() = default;

private:
    std::string name_;
    int flags_;
};

/// A parameter that is an unsigned number from 0 to maximum().
class PersistentInfo::Number : public Base {
public:
    using Base::Base;

    std::string value(ConstBlock block, unsigned int bit) const override;
    bool setValue(Block block, unsigned int bit, const std::string& text) const override;
    std::string refusal(const std::string& text) const override;

    virtual std::uint32_t maximum() const = 0;
    virtual std::uint32_t load(ConstBlock block, unsigned int bit) const = 0;

    /// REQUIRES: number <= maximum().
    virtual void store(Block block, unsigned int bit, std::uint32_t number) const = 0;
};

/// A 32-bit number in the machine's byte order at byte (bit + 7) / 8.
class PersistentInfo::Int final : public Number {
public:
    explicit Int(const char* name, int flags = 0, std::uint32_t maximum = UINT32_MAX)
        : Number(name, flags), maximum_(maximum) {}

    unsigned int sizeInBits() const override { return 32; }
    Kind kind() const override { return Kind::Int; }
    std::uint64_t endByte(unsigned int bit) const override;
    std::uint32_t maximum() const override { return maximum_; }
    std::uint32_t load(ConstBlock block, unsigned int bit) const override;
    void store(Block block, unsigned int bit, std::uint32_t number) const override;

private:
    std::uint32_t maximum_;
};

/// A text of at most `length` bytes at byte bit / 8. The value ends before the first zero byte, or where the
/// field ends. Storing fills the rest of the field with zero bytes.
class PersistentInfo::String final : public Base {
public:
    String(const char* name, unsigned int length, int flags = 0) : Base(name, flags), length_(length) {}

    unsigned int sizeInBits() const override { return length_ * 8; }
    std::string value(ConstBlock block, unsigned int bit) const override;
    bool setValue(Block block, unsigned int bit, const std::string& text) const override;
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
/// Reading is one 32-bit access, storing is one read and one write, which leaves the word's other bits.
class PersistentInfo::Bits final : public Number {
public:
    Bits(const char* name, unsigned int width, int flags = 0) : Number(name, flags), width_(width) {}

    unsigned int sizeInBits() const override { return width_; }
    Kind kind() const override { return Kind::Bits; }
    std::uint64_t endByte(unsigned int bit) const override;
    std::uint32_t maximum() const override { return UINT32_MAX >> (32 - width_); }
    std::uint32_t load(ConstBlock block, unsigned int bit) const override;
    void store(Block block, unsigned int bit, std::uint32_t number) const override;

private:
    unsigned int shift(unsigned int bit) const { return 32 - bit % 32 - width_; }

    unsigned int width_;
};
