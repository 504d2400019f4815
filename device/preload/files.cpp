#include "device/preload/faultswitches.h"
#include "device/preload/preload.h"

#include <cstdarg>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// The wrappers of all functions that open, make, move or remove a path. 32-bit programs call the large-file
// forms, which end in 64; fortified programs call the forms that end in _2 if they pass no mode.

extern "C" int __open_2(const char* path, int flags);
extern "C" int __open64_2(const char* path, int flags);
extern "C" int __openat_2(int folder, const char* path, int flags);
extern "C" int __openat64_2(int folder, const char* path, int flags);

namespace {

constexpr mode_t NO_MODE = 0;
constexpr mode_t KERNEL_LOG_MODE = 0666;

constinit Next<int(const char*, int, ...)> nextOpen("open");
constinit Next<int(const char*, int, ...)> nextOpen64("open64");
constinit Next<int(int, const char*, int, ...)> nextOpenat("openat");
constinit Next<int(int, const char*, int, ...)> nextOpenat64("openat64");
constinit Next<int(const char*, int)> nextOpen2("__open_2");
constinit Next<int(const char*, int)> nextOpen642("__open64_2");
constinit Next<int(int, const char*, int)> nextOpenat2("__openat_2");
constinit Next<int(int, const char*, int)> nextOpenat642("__openat64_2");
constinit Next<FILE*(const char*, const char*)> nextFopen("fopen");
constinit Next<FILE*(const char*, const char*)> nextFopen64("fopen64");
constinit Next<DIR*(const char*)> nextOpendir("opendir");
constinit Next<int(const char*, mode_t)> nextMkdir("mkdir");
constinit Next<int(const char*)> nextUnlink("unlink");
constinit Next<int(const char*, const char*)> nextRename("rename");

bool takesMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

// Opens `path` through `original(path, flags, mode)`.
template <typename Original>
int openMapped(const char* path, int flags, mode_t mode, Original original) {
    const PathArgument argument(path);
    if (!argument.isUsable() || refusesDescriptor())
        return -1;
    if (argument.isKernelLog()) {
        // The kernel log is a plain file here: appending keeps the lines of several processes whole.
        mode = takesMode(flags) ? mode : KERNEL_LOG_MODE;
        flags = (flags & ~O_TRUNC) | O_APPEND | O_CREAT;
    }
    return original(argument.text(), flags, mode);
}

// The mode after the last named argument, if `flags` require one.
mode_t modeIn(va_list arguments, int flags) {
    return takesMode(flags) ? va_arg(arguments, mode_t) : NO_MODE;
}

template <typename Original>
FILE* fopenMapped(const char* path, const char* mode, Original& original) {
    const PathArgument argument(path);
    return argument.isUsable() && !refusesDescriptor() ? original(argument.text(), mode) : nullptr;
}

} // namespace

INTERPOSED int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeIn(arguments, flags);
    va_end(arguments);
    return openMapped(path, flags, mode, [](const char* p, int f, mode_t m) { return nextOpen(p, f, m); });
}

INTERPOSED int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeIn(arguments, flags);
    va_end(arguments);
    return openMapped(path, flags, mode, [](const char* p, int f, mode_t m) { return nextOpen64(p, f, m); });
}

INTERPOSED int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeIn(arguments, flags);
    va_end(arguments);
    return openMapped(path, flags, mode,
                      [folder](const char* p, int f, mode_t m) { return nextOpenat(folder, p, f, m); });
}

INTERPOSED int openat64(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeIn(arguments, flags);
    va_end(arguments);
    return openMapped(path, flags, mode,
                      [folder](const char* p, int f, mode_t m) { return nextOpenat64(folder, p, f, m); });
}

// The original ends the process if the flags of a fortified call require a mode.

INTERPOSED int __open_2(const char* path, int flags) {
    return takesMode(flags) ? nextOpen2(path, flags) : open(path, flags);
}

INTERPOSED int __open64_2(const char* path, int flags) {
    return takesMode(flags) ? nextOpen642(path, flags) : open64(path, flags);
}

INTERPOSED int __openat_2(int folder, const char* path, int flags) {
    return takesMode(flags) ? nextOpenat2(folder, path, flags) : openat(folder, path, flags);
}

INTERPOSED int __openat64_2(int folder, const char* path, int flags) {
    return takesMode(flags) ? nextOpenat642(folder, path, flags) : openat64(folder, path, flags);
}

INTERPOSED FILE* fopen(const char* path, const char* mode) {
    return fopenMapped(path, mode, nextFopen);
}

INTERPOSED FILE* fopen64(const char* path, const char* mode) {
    return fopenMapped(path, mode, nextFopen64);
}

INTERPOSED DIR* opendir(const char* path) {
    const PathArgument argument(path);
    return argument.isUsable() && !refusesDescriptor() ? nextOpendir(argument.text()) : nullptr;
}

INTERPOSED int mkdir(const char* path, mode_t mode) noexcept {
    const PathArgument argument(path);
    return argument.isUsable() ? nextMkdir(argument.text(), mode) : -1;
}

INTERPOSED int unlink(const char* path) noexcept {
    const PathArgument argument(path);
    return argument.isUsable() ? nextUnlink(argument.text()) : -1;
}

INTERPOSED int rename(const char* from, const char* to) noexcept {
    const PathArgument source(from);
    const PathArgument target(to);
    return source.isUsable() && target.isUsable() ? nextRename(source.text(), target.text()) : -1;
}
