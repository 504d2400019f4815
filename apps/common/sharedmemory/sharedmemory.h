#pragma once

#include "apps/common/files/descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// One named segment of POSIX shared memory, in which the device's processes keep their common state:
///
///     mapping   address()
///     |         |
///     0         4                                  4 + size
///     +---------+----------------------------------+
///     |  size   |  data area                       |
///     +---------+----------------------------------+
///      32 bits, written by the creator, machine's byte order
///
/// Processes read and write the data area at the same time and without locks: only aligned words of 32 bits
/// are consistent.
///
/// All failures throw std::runtime_error. System calls that fail have the segment's name, with its slash, and
/// the reason as text: "/MemApp: No such file or directory".
class SharedMemory {
public:
    /// The segment "/<name>" with `size` bytes of data. Opens nothing. REQUIRES: size < 2^31 - 4.
    SharedMemory(const char* name, unsigned int size);

    /// Closes. Nothing is thrown.
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    /// Creates the segment, or opens the one that exists, and gives it its length. From now on close removes
    /// it.
    void create();

    /// Opens a segment that another process has created. It does not map it, so it does not check the size.
    void open();

    /// The data area, mapped with the first call. The creator's first call writes the size word; that of any
    /// other process throws "Memory size missmatch for <name>, requested <size>, is <size word>." when the
    /// sizes differ, also for a segment that is shorter than its size word says. Throws "Call open or create
    /// before asking for the address". The address holds until the process ends: it outlives close and the
    /// object.
    char* address();

    /// Closes the descriptor; the creator also removes the segment's name and logs at Error if that fails.
    /// Data addresses stay valid, and when the segment is opened again, address returns the one from before.
    void close() noexcept;

private:
    void keep(int fd);
    std::size_t length() const { return SIZE_WORD + std::size_t{size_}; }
    char* map() const;
    std::uint32_t storedSize(const void* start) const;

    static constexpr std::uint32_t SIZE_WORD = sizeof(std::uint32_t);

    std::string name_;
    unsigned int size_;
    Descriptor file_;
    char* data_ = nullptr;
    bool isCreator_ = false;
};
