#pragma once

#include "apps/libs/lhwinfo/blockaccess.h"

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

/// A region of a device file (a block device or /dev/mem) with named, typed parameters laid over it, one
/// behind the other in the order of their declaration:
///
///     page boundary      offset in the device                offset + region size
///     |                  |                                   |
///     +------------------+--------+--------+-------+---------+
///     |  distance        | first  | second | ...   |  unused |
///     +------------------+--------+--------+-------+---------+
///     mapping            block    |<-- size() bytes -->|
///
/// Nothing outside the region is read or written. Values have two forms. As numbers they are unsigned, 32
/// bits at most. As text, a number is read as decimal digits ("42", "0042") or as hexadecimal digits behind
/// "0x" or "0X" ("0x2a"), without sign and blanks, and printed as decimal digits; a text is its characters.
///
/// Several processes may map the same region. There are no locks between them.
class PersistentInfo {
public:
    enum class Kind { String = 0, Int = 1, Bits = 3 };
    class Base;
    class Number;
    class Int;
    class String;
    class Bits;

    /// Flag of a parameter that is not set by name from text.
    static constexpr int PRIVATE = 1;
    /// Flags of a parameter that only takes up room between others.
    static constexpr int FILLER = 2;
    /// Bytes at the start of a block that no checksum covers.
    static constexpr unsigned int HEADER_SIZE = 12;

    /// Opens and maps `size` bytes at byte `offset` of `device`, as open() does. `device` must live as long
    /// as the object.
    PersistentInfo(const char* device, unsigned int offset, unsigned int size);

    /// Unmaps and closes. What was written may still be on its way to the device: see flush().
    ~PersistentInfo();
    PersistentInfo(const PersistentInfo&) = delete;
    PersistentInfo& operator=(const PersistentInfo&) = delete;

    /// Opens and maps the region, again if it is open already. Reads and writes nothing of it. Throws
    /// std::runtime_error with "open: <reason>" or "mmap: <reason>"; a card or file that ends before the
    /// region does is "mmap: No such device or address".
    void open();

    /// Appends a parameter and owns it. Throws "<name> does not fit." when it would reach beyond the region,
    /// for bits also when they have no or more than 32 bits or would cross from one word into the next.
    /// Where a name is declared twice the first one counts. REQUIRES: not null.
    void addInfo(std::unique_ptr<Base> parameter);

    /// Bytes that the parameters take, 0 without parameters.
    unsigned int size() const { return (bits_ + 7) / 8; }

    /// Bytes that were mapped.
    unsigned int regionSize() const { return size_; }

    /// The parameter of that name, or null; a null name, here and in what follows, is a name that no
    /// parameter has. The block owns it.
    const Base* parameter(const char* name) const { return find(name).parameter; }

    /// Reads a parameter. False when there is none of that name; the numeric form is also false for a text
    /// parameter. `out` is untouched then.
    bool get(const char* name, unsigned int& out) const;
    bool get(const char* name, std::string& out) const;

    /// Writes a parameter, private ones too unless `refusePrivate` is set: then these throw
    /// "<name> is private.". False, and nothing is changed, when there is none of that name or it does not
    /// take the value (see Base::refusal); the numeric form is also false for a text parameter and for a
    /// null `value`.
    bool set(const char* name, const unsigned int* value, bool refusePrivate = false);
    bool set(const char* name, const std::string& text, bool refusePrivate = false);

    /// Throws "Length <length> is beyond the <region size> bytes of the block." when it is.
    void requireInside(unsigned int length) const;

    /// CRC-32/MPEG-2 of the bytes from HEADER_SIZE up to `length` - 1; 0xFFFFFFFF when these are none. Throws
    /// as requireInside does.
    std::uint32_t checksum(unsigned int length) const;

    /// Sets bytes `from` to `to` - 1 to zero; does nothing unless `from` < `to`. Throws as requireInside does
    /// when `to` is beyond the region; nothing is changed then.
    void setNewMemToDefault(unsigned int from, unsigned int to);

    /// Sets every parameter, private ones and fillers too, to zero or to the empty text.
    void clearAll();

    /// Prints one line for each parameter that text may set, in the form that it is set by:
    ///
    ///     serial=K1-00042
    ///
    /// Characters that steer a terminal are printed as "\x1b".
    void printParameters(std::ostream& out) const;

    /// Prints all parameters as a table: byte and bit where each begins, counted in the order of declaration,
    /// its size in bits, name, "private" or "filler", and value:
    ///
    ///        byte.bit   bits  name                          value
    ///             0.0     32  version               private 5
    ///            12.0    240  serial                        K1-00042
    void printAll(std::ostream& out) const;

    /// Returns when the device holds all that was written. Throws "msync: <reason>".
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
    [[noreturn]] void fail(const char* call);

    const char* device_;
    unsigned int offset_;
    unsigned int size_;
    int fd_ = -1;
    void* mapping_ = nullptr;
    unsigned int distance_ = 0;
    std::size_t mappedLength_ = 0;
    Block block_ = nullptr;
    std::vector<std::unique_ptr<Base>> parameters_;
    unsigned int bits_ = 0;
};
