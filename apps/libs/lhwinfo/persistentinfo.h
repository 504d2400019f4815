#pragma once

#include "apps/common/files/descriptor.h"
#include "apps/libs/lhwinfo/parameters.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// A region of a device file (a block device or /dev/mem) with named, typed parameters laid over it, in the
/// order of their declaration and without gaps:
///
///     page boundary      offset in the device                offset + region size
///     |                  |                                   |
///     +------------------+--------+--------+-------+---------+
///     |  distance        | first  | second | ...   |  unused |
///     +------------------+--------+--------+-------+---------+
///     mapping            block    |<-- size() bytes -->|
///
/// Nothing outside the region is read or written. A value has two forms. As a number it is unsigned and has
/// at most 32 bits. As text, a number is read as decimal digits ("42", "0042") or as hexadecimal digits with
/// the prefix "0x" or "0X" ("0x2a"), without sign or blanks, and printed in decimal; a text is its
/// characters.
///
/// Several processes may map the same region. They do not lock it.
class PersistentInfo {
public:
    using Base = Parameter;
    using Int = IntParameter;
    using String = StringParameter;
    using Bits = BitsParameter;

    /// Bytes at the start of a block that the checksum does not cover.
    static constexpr unsigned int HEADER_SIZE = 12;

    /// Opens and maps `size` bytes at byte `offset` of `device`, as open() does. `device` must live as long
    /// as the object.
    PersistentInfo(const char* device, unsigned int offset, unsigned int size);

    /// Unmaps and closes. The device may not hold the last writes yet: see flush().
    ~PersistentInfo();
    PersistentInfo(const PersistentInfo&) = delete;
    PersistentInfo& operator=(const PersistentInfo&) = delete;

    /// Opens and maps the region, again if it is open already. Neither reads nor writes it. Throws
    /// std::runtime_error with "open: <reason>" or "mmap: <reason>"; if the card or file ends before the
    /// region does, "mmap: No such device or address".
    void open();

    /// Appends a parameter and owns it. Throws "<name> does not fit." if it would reach beyond the region;
    /// for bits also if the width is 0 or above 32 or the field would cross a word boundary. If a name is
    /// declared twice, the first declaration counts. REQUIRES: not null.
    void addInfo(std::unique_ptr<Base> parameter);

    /// Bytes that the parameters take, 0 without parameters.
    unsigned int size() const { return (bits_ + 7) / 8; }

    /// Bytes that were mapped.
    unsigned int regionSize() const { return size_; }

    /// The parameter of that name, owned by the block, or null. In all functions a null name is a name that
    /// no parameter has.
    const Base* parameter(const char* name) const { return find(name).parameter; }

    /// Reads a parameter. Returns false and leaves `out` untouched if no parameter has that name; the
    /// numeric form also for a text parameter.
    bool get(const char* name, unsigned int& out) const;
    bool get(const char* name, std::string& out) const;

    /// Writes a parameter. Returns false if no parameter has that name or Base::setValue returns false; the
    /// numeric form also for a null `value`. Throws "<name> is private." for a private parameter if
    /// `refusePrivate` is set.
    bool set(const char* name, const unsigned int* value, bool refusePrivate = false);
    bool set(const char* name, const std::string& text, bool refusePrivate = false);

    /// Throws "Length <length> is beyond the <region size> bytes of the block." if it is.
    void requireInside(unsigned int length) const;

    /// CRC-32/MPEG-2 of the bytes from HEADER_SIZE up to `length` - 1; 0xFFFFFFFF if there are none. Throws
    /// as requireInside does.
    std::uint32_t checksum(unsigned int length) const;

    /// Sets bytes `from` to `to` - 1 to zero; does nothing unless `from` < `to`. If `to` is beyond the
    /// region, throws as requireInside does and changes nothing.
    void setNewMemToDefault(unsigned int from, unsigned int to);

    /// Sets every parameter, private ones and fillers too, to zero or to the empty text.
    void clearAll();

    /// Prints to std::cout one line for each parameter that can be set from text, in the form in which it is
    /// set:
    ///
    ///     serial=K1-00042
    ///
    /// Control characters are printed as "\x1b".
    void printParameters() const;

    /// Prints to std::cout a table of all parameters: the byte and bit where each begins, counted in the
    /// order of declaration, its size in bits, name, "private" or "filler", and value:
    ///
    ///        byte.bit   bits  name                          value
    ///             0.0     32  version               private 5
    ///            12.0    240  serial                        K1-00042
    void printAll() const;

    /// Waits until the device holds all writes. Throws "msync: <reason>".
    void flush();

private:
    struct Place {
        const Base* parameter = nullptr;
        unsigned int bit = 0;
    };

    Place find(const char* name) const;
    Place findToSet(const char* name, bool refusePrivate) const;
    void map();
    void release() noexcept;

    const char* device_;
    unsigned int offset_;
    unsigned int size_;
    Descriptor fd_;
    void* mapping_ = nullptr;
    unsigned int distance_ = 0;
    std::size_t mappedLength_ = 0;
    Block block_ = nullptr;
    std::vector<std::unique_ptr<Base>> parameters_;
    unsigned int bits_ = 0;
};
