#pragma once

#include "apps/common/values/reference.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

/// Snapshots: the values of variables at one moment as JSON, in the form that the console's Snapshot view
/// saves and reads (docs/console.md), with memories and variables in alphabetical order:
///
///     {
///      "snapshot": 1,
///      "device": "Lens Control",
///      "taken": "2026-11-22T08:03:44.123Z",
///      "memories": {
///       "MemLens": {
///        "LensFileList": [
///         {"LensFileName":"Prime 25 T1.8"},
///         ...
///        ],
///        "LensFileListSize": "8",
///
/// A value is the text that the web API prints, an object of members, a list of these, or null for a text
/// that is not valid UTF-8.

/// The file's text with the present values.
std::string snapshotText(const std::vector<VariableId>& variables);

/// The object "memories" of a snapshot. Throws std::runtime_error "<path>: <reason>" if the file cannot be
/// read or is not a snapshot.
nlohmann::json readSnapshot(const std::string& path);

/// The same object with the present values of its variables, without those that this device does not have.
nlohmann::json presentValues(const nlohmann::json& memories);

/// A value that is not the same in two snapshots. A value that is missing in one of them is discarded there.
struct Difference {
    std::string name; ///< as Reference takes it
    nlohmann::json from;
    nlohmann::json to;

    /// "MemPersistent.FocusTorque  2 -> 3"
    std::string text() const;
};

/// What differs, by members and elements where both have them.
std::vector<Difference> differences(const nlohmann::json& from, const nlohmann::json& to);
