#pragma once

#include <cstddef>

/// The pure half of the preload library: which paths and names of the device a program meets, and where they
/// lie for a virtual one. Nothing here calls the system, touches errno or allocates.

/// What a path means to the device.
enum class PathKind {
    Elsewhere, ///< not the device's: used as it is
    File,      ///< a device file or socket
    Folder,    ///< a folder of the device, or something in it
    KernelLog, ///< written by many processes at once, so opened for appending
    TooLong,   ///< the device's, but the mapped path does not fit
};

/// Writes the place of the device's `path` under `root` to `out` (`size` bytes, terminated). The path is
/// compared after doubled slashes, "." and ".." are taken out by text alone, so "/update/../etc/passwd" is
/// elsewhere, and nothing that is mapped leaves `root`. `out` is meaningful for File, Folder and KernelLog. A
/// null or relative path, or a null `root`, is Elsewhere.
PathKind mappedPath(const char* root, const char* path, char* out, std::size_t size);

/// Writes "/" + `prefix` + `name` without its leading slashes to `out`: the virtual device's own segment or
/// semaphore for a name that all devices share. Returns false when it does not fit `size` bytes.
bool mappedName(const char* prefix, const char* name, char* out, std::size_t size);
