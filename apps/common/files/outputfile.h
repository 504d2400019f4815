#pragma once

#include "apps/common/files/descriptor.h"

#include <string>
#include <string_view>

/// A file that is written from its beginning, with few large writes. What goes wrong is kept, not thrown.
class OutputFile {
public:
    /// Creates the file or truncates it. Returns false, with the reason in errno, when it cannot be opened;
    /// a path with a NUL character, which names nothing, counts as ENOENT.
    bool open(const std::string& path);
    bool isOpen() const { return file_.isOpen(); }

    /// Writes all of `bytes` at the file's end. Returns false, with the reason in errno, when the file is not
    /// open or took only a part: the disk is full, for example.
    bool write(std::string_view bytes);

private:
    Descriptor file_;
};
