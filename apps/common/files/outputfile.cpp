#include "apps/common/files/outputfile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

bool OutputFile::open(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        errno = ENOENT;
        return false;
    }
    // Non-blocking: opening a named pipe fails instead of waiting for a reader.
    file_ = Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0666));
    return isOpen();
}

bool OutputFile::write(std::string_view bytes) {
    if (!isOpen()) {
        errno = EBADF;
        return false;
    }
    while (!bytes.empty()) {
        const ssize_t written = ::write(file_.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue; // the event loop handles the signal
        if (written <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool OutputFile::sync() {
    return fsync(file_.get()) == 0;
}

bool moveFile(const std::string& from, const std::string& to) {
    if (rename(from.c_str(), to.c_str()) < 0)
        return false;
    const std::string folder = to.substr(0, to.rfind('/') + 1);
    const Descriptor fd(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fsync(fd.get()) == 0;
}
