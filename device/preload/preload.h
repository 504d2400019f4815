#pragma once

#include "device/preload/mapping.h"

#include <atomic>
#include <climits>

/// What the library's wrappers share. Each wrapper stands in front of the C library's function of the same
/// name, translates its arguments and calls the original. Three variables of the environment say what to do;
/// without them nothing changes:
///
///     VIRTUAL_DEVICE_ROOT   folder that holds the device's paths
///     VIRTUAL_DEVICE_NAME   prefix of segment and semaphore names
///     VIRTUAL_DEVICE_PORT   port that listeners on 9000 get instead
///
/// They are read at each call: there is no state but the addresses of the originals, so wrappers may run in
/// any thread, before any constructor, and in a process that forks.

/// Stands before each wrapper: the library shows nothing else to the programs that it is loaded into.
#define INTERPOSED extern "C" __attribute__((visibility("default")))

/// Finds the function that `name` has behind this library. Leaves errno as it is; a name that the C library
/// does not have ends the process.
void* nextFunction(const char* name);

/// The original behind a wrapper, looked up at its first call.
template <typename Function>
class Next {
public:
    constexpr explicit Next(const char* name) : name_(name) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments) {
        Function* function = function_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<Function*>(nextFunction(name_));
            function_.store(function, std::memory_order_relaxed);
        }
        return function(arguments...);
    }

private:
    const char* name_;
    std::atomic<Function*> function_{nullptr};
};

/// A path argument as the original shall see it. Does not own the caller's text, which must outlive it.
class PathArgument {
public:
    explicit PathArgument(const char* path);

    /// False when the mapped path is too long; errno is ENAMETOOLONG then.
    bool isUsable() const { return kind_ != PathKind::TooLong; }
    bool isKernelLog() const { return kind_ == PathKind::KernelLog; }
    /// The mapped path, or the caller's.
    const char* text() const { return text_; }

private:
    char mapped_[PATH_MAX];
    PathKind kind_;
    const char* text_;
};
