#include "apps/common/files/outputfile.h"
#include "apps/variables/commands.h"
#include "apps/variables/snapshotfile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The file to which symbolic links lead. A device or a pipe would be replaced by a file.
std::string placeOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) < 0)
        return path;
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error(path + " is not a regular file");
    const std::unique_ptr<char, decltype(&std::free)> place(realpath(path.c_str(), nullptr), std::free);
    return place == nullptr ? path : place.get();
}

// A full disk or a power cut leaves the old file or the new one.
void store(const std::string& path, const std::string& text) {
    const std::string incomplete = path + ".incomplete";
    OutputFile file;
    if (file.open(incomplete) && file.write(text) && file.sync() && moveFile(incomplete, path))
        return;
    const int reason = errno;
    unlink(incomplete.c_str());
    throw std::runtime_error(path + ": " + std::strerror(reason));
}

// Whether the file has the present values already: then its time stays as well.
bool isUpToDate(const std::string& path, const std::vector<VariableId>& variables) {
    try {
        const nlohmann::json memories = readSnapshot(path);
        std::size_t count = 0;
        for (const nlohmann::json& memory : memories)
            count += memory.size();
        return count == variables.size() && differences(memories, presentValues(memories)).empty();
    } catch (const std::runtime_error&) {
        return false;
    }
}

} // namespace

int snapshot(const SnapshotOptions& options) {
    const std::vector<VariableId> variables = matchingVariables(options.patterns);
    if (!options.isForced && access(options.file.c_str(), F_OK) == 0)
        throw std::runtime_error(options.file + " exists; --force replaces it");
    const std::string place = placeOf(options.file);
    if (!isUpToDate(place, variables))
        store(place, snapshotText(variables));
    return 0;
}

int diff(const DiffOptions& options) {
    const nlohmann::json from = readSnapshot(options.file);
    const nlohmann::json to = options.other.empty() ? presentValues(from) : readSnapshot(options.other);
    const std::vector<Difference> found = differences(from, to);
    for (const Difference& difference : found)
        std::puts(difference.text().c_str());
    return found.empty() ? 0 : 1;
}
