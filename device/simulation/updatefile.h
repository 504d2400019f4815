#pragma once

#include <string>

/// A firmware file of the virtual device, described by its first line; the rest is ignored:
///
///     firmware;Motor Controller;3.2.0;4
///     |        |                |     +-- number of parts, 1 to 16
///     |        |                +-- version, 1 to 19 characters
///     |        +-- name of the product or accessory
///     +-- fixed
///
/// With ";fails" at its end, writing the last part fails.
struct UpdateFile {
    /// The update state: "FileValid", "FileNotFound" or "FileCorrupt". Without "FileValid" the rest is empty.
    std::string verdict;
    std::string product;
    std::string version;
    int parts = 0;
    bool fails = false;
};

/// Reads the first line of the file at `path`.
UpdateFile readUpdateFile(const std::string& path);
