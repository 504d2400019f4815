#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class Request;

/// The files of one kind that the user keeps on the device: one folder, flat. A path is the folder's text and
/// the name, joined as they are; a name with a NUL character names nothing.
class UserFiles {
public:
    enum class Stored { Done, NotOpened, NotWritten };

    /// `folder` ends in a slash.
    explicit UserFiles(std::string folder) : folder_(std::move(folder)) {}

    /// The names of the regular files in the order of the directory, nothing when the folder cannot be
    /// opened. Entries whose type the directory does not tell are passed over.
    std::optional<std::vector<std::string>> list() const;

    /// Writes the file's bytes to the request's output. Returns false, with nothing written, when the file
    /// cannot be opened or is no regular one. A read error ends the output early with a Warn line.
    bool send(const std::string& name, Request& request) const;

    /// Replaces the file's content, and makes the folder when it is missing. When the disk is full the file
    /// holds what found room.
    Stored store(const std::string& name, std::string_view content) const;

    /// Returns false when the file cannot be removed.
    bool remove(const std::string& name) const;

private:
    std::string folder_;
};
