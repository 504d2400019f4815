#pragma once

#include <string>

/// A firmware file of the virtual device. Its first line says what it is; the rest may be anything:
///
///     firmware;Motor Controller;3.2.0;4
///     |        |                |     +-- parts that are written one after the other, 1 to 16
///     |        |                +-- version, 1 to 19 characters
///     |        +-- name of the product or accessory that it is for
///     +-- always so
///
/// With ";fails" at its end, writing the last part fails.
struct UpdateFile {
    /// What is found out about a file, in the names of the device's update states.
    std::string
        verdict; ///< "FileValid", "FileNotFound" or "FileCorrupt"; the rest is empty but for the first
    std::string product;
    std::string version;
    int parts = 0;
    bool fails = false;
};

/// Looks at the first line of the file at `path`.
UpdateFile readUpdateFile(const std::string& path);
