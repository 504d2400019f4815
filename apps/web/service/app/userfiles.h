#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class Request;

/// The user's files of one kind, in one flat folder. A path is the folder's text and the name, concatenated;
/// a name with a NUL character names no file, nor does that of the temporary file, ".incomplete".
class UserFiles {
public:
    enum class Stored { Done, NotOpened, NotWritten };

    /// `folder` ends in a slash.
    explicit UserFiles(std::string folder) : folder_(std::move(folder)) {}

    /// The names of the regular files in directory order, nothing when the folder cannot be opened. Entries
    /// of unknown type are skipped.
    std::optional<std::vector<std::string>> list() const;

    /// Writes the file's bytes to the request's output. Returns false, with nothing written, when the file
    /// cannot be opened or is not a regular one. A read error ends the output early with a Warn line.
    bool send(const std::string& name, Request& request) const;

    /// Replaces the file's content, and creates the folder if it is missing. Returns when the content is on
    /// the disk. The temporary file is in the folder that the path leads to. After a failure or a power cut
    /// the file holds its old or its new content. A kill may leave the temporary file, which the next store
    /// or removeLeftovers removes. Replaces a symbolic link instead of following it.
    Stored store(const std::string& name, std::string_view content) const;

    /// Returns false when the file cannot be removed.
    bool remove(const std::string& name) const;

    /// Removes the temporary file of a store that was interrupted.
    void removeLeftovers() const;

private:
    bool isFileName(const std::string& name) const;

    std::string folder_;
};
