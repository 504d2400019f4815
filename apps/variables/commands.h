#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// The tool's commands. Each reads or changes the memories, which are open, prints to standard output, and
/// returns the program's exit status: 0, or 1 after a message on standard error. A failure throws
/// std::runtime_error, whose text is for people; names and values that are not accepted throw Refusal.

struct ListOptions {
    std::vector<std::string> patterns;
    bool isJson = false;
    bool isLong = false;
};
int list(const ListOptions& options);

struct GetOptions {
    std::vector<std::string> names;
    bool isJson = false;
};
int get(const GetOptions& options);

struct SetOptions {
    std::vector<std::string> assignments; // NAME=VALUE
};
int set(const SetOptions& options);

struct WatchOptions {
    std::vector<std::string> patterns;
    bool isJson = false;
    std::optional<std::chrono::milliseconds> duration;
    std::string until; // NAME=VALUE, or empty
};
int watch(const WatchOptions& options);
