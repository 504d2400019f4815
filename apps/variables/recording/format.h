#pragma once

#include "apps/common/values/reference.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// A recording: the values of variables at its start, and each event of a change with its time. Version 1.
/// docs/recording.md describes it with an example, docs/recording.py reads it.
///
///     file          0         8
///                   +---------+-------------+---------+---------+----
///                   | "VarRec1\n" | description |  start  | changes | ...     frames
///                   +---------+-------------+---------+---------+----
///
///     frame         +-----------+---------+------------+
///                   |  length   | content |   CRC-32   |   of the content (IEEE 802.3), 32 bits
///                   +-----------+---------+------------+
///
///     description   text in lines:  catalogue 4aa048992231479b
///                                   started 2026-11-22T08:03:44.123Z
///                                   MemPersistent.FocusTorque int 4         one line for each variable,
///                                   MemPersistent.DisplayUnit enum 4 Default,Meter,Feet   see describe()
///
///     other frames are entries:
///                   +--------+----------+--------------+--------+-------+
///                   |  time  | variable | [arg1, arg2] |  span  | bytes |
///                   +--------+----------+--------------+--------+-------+
///
/// length, time, variable, arg1, arg2, span: unsigned numbers of 7 bits a byte, lowest first; all bytes but
/// the last have bit 7. Fixed numbers are little-endian.
///
/// time       microseconds since the previous entry; the first entry has time 0
/// variable   bit 0: arg1 and arg2 follow, the event's arguments, else both are 0; the other bits: lines in
///            the description since the previous entry's variable d (the first one's: the first line), as
///            2 * d, or -2 * d - 1 if d < 0
/// span       length * (size of the variable + 1) + offset of the bytes that differ from the variable's
///            previous value, all zeros at first. 0 if the event came without a change.
/// bytes      the new ones, in the device's byte order, which is little-endian
///
/// The second frame holds one entry for each variable, in the order of the description and all of time 0.
/// Frames are written whole, so a recording ends with the last frame that is complete.
namespace recording {

constexpr std::string_view MAGIC = "VarRec1\n";
constexpr std::size_t CRC_BYTES = 4;
constexpr std::size_t LARGEST_FRAME = 16U << 20U;

/// "NAME KIND SIZE" and what else the bytes mean: the entries of an enumeration ("Default,Meter,Feet"), the
/// count and the members of a structure with their kind and offset ("100 LensFileName string 0;...").
/// Variables with the same description are the same for a replay.
std::string describe(const VariableId& variable);

/// All variables of the catalogue by their description.
std::map<std::string, VariableId> describedVariables();

/// CRC-32 of IEEE 802.3, as zlib's crc32.
std::uint32_t checksum(std::string_view bytes);

void appendNumber(std::string& out, std::uint64_t number);

} // namespace recording
