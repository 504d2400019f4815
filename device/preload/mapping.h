#pragma once

#include <cstddef>

/// Maps the device's paths and names to those of a virtual device. Makes no system call, does not change
/// errno and does not allocate.

/// Kinds of paths.
enum class PathKind {
    Elsewhere, ///< not the device's, used unchanged
    File,      ///< a device file or socket
    Folder,    ///< a folder of the device, or a path in it
    KernelLog, ///< written by many processes, so opened for appending
    TooLong,   ///< the device's, but the mapped path does not fit
};

/// Writes the mapped form of `path` under `root` to `out` (`size` bytes, terminated). Doubled slashes, "."
/// and ".." are removed first, as text, so "/update/../etc/passwd" is Elsewhere and no mapped path leaves
/// `root`. `out` is set for File, Folder and KernelLog. A null or relative path, or a null `root`, is
/// Elsewhere.
PathKind mappedPath(const char* root, const char* path, char* out, std::size_t size);

/// Writes "/" + `prefix` + `name` without its leading slashes to `out`: the name of a segment or semaphore of
/// this virtual device. Returns false if it does not fit `size` bytes.
bool mappedName(const char* prefix, const char* name, char* out, std::size_t size);
