#pragma once

#include <atomic>
#include <cstdint>

/// The faults that the library can put into one process, in the file that the process's environment names in
/// VIRTUAL_DEVICE_FAULTS (device/launcher/faults.py writes it). The process maps it at its start and sees
/// each change immediately; without the variable all switches are off. Its children do not inherit the
/// variable. Words of 32 bits, the machine's byte order; 0 is off:
///
///     0            4             8           12           16
///     +------------+-------------+-----------+------------+
///     | readBytes  | descriptors | fullDisk  | clockStepS |
///     +------------+-------------+-----------+------------+
struct FaultSwitches {
    using Word = std::atomic<std::uint32_t>;

    Word readBytes;   ///< read and recv return at most so many bytes, from the broker whole records
    Word descriptors; ///< a descriptor with this number or a higher one is not opened: EMFILE
    Word fullDisk;    ///< writing to a regular file fails with ENOSPC; the kernel log stays writable
    Word
        clockStepS; ///< seconds, as a signed number, that the wall clock is ahead; the others are not changed
};

static_assert(sizeof(FaultSwitches) == 16 && FaultSwitches::Word::is_always_lock_free);

/// Sets errno to EMFILE and returns true if the switch `descriptors` refuses the next descriptor.
bool refusesDescriptor();
