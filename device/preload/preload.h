#pragma once

#include "device/preload/mapping.h"

#include <atomic>
#include <climits>

/// The common part of the wrappers. Each wrapper replaces the C library's function of the same name,
/// translates its arguments and calls the original, as three variables of the environment say; without them
/// nothing changes:
///
///     VIRTUAL_DEVICE_ROOT   folder that holds the device's paths
///     VIRTUAL_DEVICE_NAME   prefix of segment and semaphore names
///     VIRTUAL_DEVICE_PORT   port that replaces 9000 for listeners
///
/// Each call reads them. The only state is the addresses of the originals and of the fault switches
/// (faultswitches.h), so wrappers can run in any thread, before any constructor, and after fork.

/// Marks each wrapper: the library exports no other symbol.
#define INTERPOSED extern "C" __attribute__((visibility("default")))

/// Finds the next function with this name after this library. Does not change errno. Ends the process if
/// there is no such function.
void* nextFunction(const char* name);

/// The original of a wrapper, looked up at its first call.
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

/// The path argument for the original. Does not own the caller's text, which must outlive it.
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
