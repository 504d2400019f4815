#include "apps/web/service/app/userfiles.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/files/descriptor.h"
#include "apps/common/files/outputfile.h"
#include "apps/web/service/app/writeinpieces.h"
#include "apps/web/service/request.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t CHUNK = 65536;

constexpr const char* TEMPORARY_NAME = ".incomplete";

Descriptor openFolder(const std::string& path) {
    return Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::string baseName(const std::string& name) {
    return name.substr(name.rfind('/') + 1);
}

// Returns whether a file can be stored under the name: there is no other kind of file.
bool isReplaceable(const Descriptor& folder, const std::string& name) {
    struct stat status = {};
    if (fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0)
        return errno == ENOENT;
    return S_ISREG(status.st_mode) || S_ISLNK(status.st_mode);
}

// Opens a regular file. Does not block on others, such as a pipe without a writer, and refuses them.
Descriptor openForReading(const std::string& path) {
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (file.isOpen() && (fstat(file.get(), &status) < 0 || !S_ISREG(status.st_mode)))
        file.close();
    return file;
}

// Reads up to a chunk into `chunk`. Returns false at the end and, with a Warn line, on a read error.
bool readChunk(const Descriptor& file, std::string& chunk) {
    chunk.resize(CHUNK);
    ssize_t size = -1;
    do {
        size = read(file.get(), chunk.data(), chunk.size());
    } while (size < 0 && errno == EINTR); // retry; the event loop handles the signal
    if (size < 0)
        LOG_MESSAGE(Warn, "Could not read user file: %s", strerror(errno));
    chunk.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return size > 0;
}

} // namespace

std::optional<std::vector<std::string>> UserFiles::list() const {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(folder_.c_str()), closedir);
    if (!directory)
        return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* entry = readdir(directory.get()))
        if (entry->d_type == DT_REG && TEMPORARY_NAME != std::string_view(entry->d_name))
            names.emplace_back(entry->d_name);
    return names;
}

bool UserFiles::send(const std::string& name, Request& request) const {
    if (!isFileName(name))
        return false;
    const Descriptor file = openForReading(folder_ + name);
    if (!file.isOpen())
        return false;
    request.output(); // writes the header also for an empty file
    for (std::string chunk; readChunk(file, chunk);)
        request.write(chunk);
    return true;
}

UserFiles::Stored UserFiles::store(const std::string& name, std::string_view content) const {
    if (mkdir(folder_.c_str(), 0777) < 0 && errno != EEXIST)
        LOG_MESSAGE(Warn, "Could not create directory %s", folder_.c_str());
    const std::string path = folder_ + name;
    const std::string parentPath = path.substr(0, path.rfind('/') + 1);
    const std::string temporary = parentPath + TEMPORARY_NAME;
    const Descriptor parent = openFolder(parentPath);
    OutputFile file;
    unlink(temporary.c_str());
    if (!isFileName(name) || !parent.isOpen() || !isReplaceable(parent, baseName(name)) ||
        !file.open(temporary))
        return Stored::NotOpened;
    if (writeInPieces(file, content) && file.sync() && moveFile(temporary, path))
        return Stored::Done;
    unlink(temporary.c_str());
    return Stored::NotWritten;
}

bool UserFiles::remove(const std::string& name) const {
    return isFileName(name) && unlink((folder_ + name).c_str()) == 0;
}

void UserFiles::removeLeftovers() const {
    unlink((folder_ + TEMPORARY_NAME).c_str());
}

bool UserFiles::isFileName(const std::string& name) const {
    const std::string base = baseName(name);
    return !base.empty() && base != TEMPORARY_NAME && name.find('\0') == std::string::npos;
}
