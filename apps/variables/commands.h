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

struct RecordOptions {
    std::string file;
    std::vector<std::string> patterns;
    std::optional<std::chrono::milliseconds> duration;
    bool isForced = false; // replaces an existing file
};
/// Records until SIGINT, SIGTERM or the end of the duration.
int record(const RecordOptions& options);

struct ReplayOptions {
    std::string file;
    double speed = 1;                  // greater than 0
    std::chrono::milliseconds from{0}; // of the recording's time
    std::optional<std::chrono::milliseconds> to;
    bool isLoop = false;
    bool isConfirmed = false; // plays on a real device, too
};
/// Plays until the end of the recording, SIGINT or SIGTERM.
int replay(const ReplayOptions& options);

struct SnapshotOptions {
    std::string file;
    std::vector<std::string> patterns;
    bool isForced = false; // replaces an existing file
};
/// Leaves an existing file with the present values as it is.
int snapshot(const SnapshotOptions& options);

struct DiffOptions {
    std::string file;
    std::string other; // or empty: the device
};
/// Needs the memories for a comparison with the device only. Returns 1 if values differ.
int diff(const DiffOptions& options);

struct RestoreOptions {
    std::string file;
    std::vector<std::string> patterns;
    bool isPreview = false;   // stores nothing
    bool isConfirmed = false; // does not ask
};
/// Stores the values that differ and are not refused. Returns 1 if values are refused.
int restore(const RestoreOptions& options);
