#pragma once

#include <cstdint>

namespace gen {

/// Severity of a diagnostic line, and the type of every log-level variable in shared memory. Higher is more
/// severe. The values are part of the shared format: the catalogue's enumeration LogLevel has the same
/// entries in this order. A level that comes from shared memory can have any value.
enum LogLevel : std::int32_t {
    DebugAll,
    DebugMost,
    DebugLight,
    LogAll,
    LogMost,
    LogLight,
    Warn,
    Error,
};

} // namespace gen
