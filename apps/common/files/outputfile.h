#pragma once

#include "apps/common/files/descriptor.h"

#include <string>
#include <string_view>

/// A file that is written from its beginning, in few large writes. Errors are returned, not thrown.
class OutputFile {
public:
    /// Creates or truncates the file. Returns false with the reason in errno if it cannot be opened; the
    /// reason for a path with a NUL character is ENOENT.
    bool open(const std::string& path);
    bool isOpen() const { return file_.isOpen(); }

    /// Writes all of `bytes` at the end. Returns false with the reason in errno if the file is not open or
    /// not all was written, for example on a full disk.
    bool write(std::string_view bytes);

    /// Returns when all written bytes are on the disk. Returns false, with the reason in errno, when they are
    /// not.
    bool sync();

private:
    Descriptor file_;
};

/// Renames a file and replaces an existing one. Returns when the new name is on the disk. Returns false with
/// the reason in errno.
bool moveFile(const std::string& from, const std::string& to);
