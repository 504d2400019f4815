#include "apps/common/sharedmemory/sharedmemory.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

SharedMemory::SharedMemory(const char* name, unsigned int size)
    : name_(std::string("/") + name), size_(size) {}

SharedMemory::~SharedMemory() {
    close();
}

void SharedMemory::create() {
    keep(shm_open(name_.c_str(), O_CREAT | O_RDWR, 0666));
    if (ftruncate(file_.get(), static_cast<off_t>(length())) < 0)
        throwErrorNumber(__FILE__, __LINE__, name_.c_str());
    isCreator_ = true;
}

void SharedMemory::open() {
    keep(shm_open(name_.c_str(), O_RDWR, 0666));
}

// shm_open has set close-on-exec.
void SharedMemory::keep(int fd) {
    if (fd < 0)
        throwErrorNumber(__FILE__, __LINE__, name_.c_str());
    file_ = Descriptor(fd);
}

char* SharedMemory::address() {
    if (!file_.isOpen())
        throwError(__FILE__, __LINE__, "Call open or create before asking for the address");
    if (data_ == nullptr)
        data_ = map() + SIZE_WORD;
    return data_;
}

char* SharedMemory::map() const {
    void* start = mmap(nullptr, length(), PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0);
    if (start == nullptr || start == MAP_FAILED)
        throwErrorNumber(__FILE__, __LINE__, name_.c_str());
    if (isCreator_) {
        std::memcpy(start, &size_, SIZE_WORD);
    } else if (const std::uint32_t stored = storedSize(start); stored != size_) {
        munmap(start, length());
        throwError(__FILE__, __LINE__, "Memory size missmatch for %s, requested %u, is %u.", name_.c_str(),
                   size_, stored);
    }
    return static_cast<char*>(start);
}

// The size of a truncated segment is what is left of it: access beyond its end would kill the process.
std::uint32_t SharedMemory::storedSize(const void* start) const {
    struct stat segment {};
    if (fstat(file_.get(), &segment) < 0)
        return 0;
    const std::int64_t present = std::int64_t{segment.st_size} - SIZE_WORD;
    if (present < 0)
        return 0;
    std::uint32_t stored;
    std::memcpy(&stored, start, SIZE_WORD);
    return present < size_ ? static_cast<std::uint32_t>(std::min<std::int64_t>(present, stored)) : stored;
}

void SharedMemory::close() noexcept {
    // The kernel refuses this address because it is not the start of the mapping. The data area stays mapped,
    // and addresses in it stay valid.
    if (data_ != nullptr)
        munmap(data_, length());
    file_.close();
    if (isCreator_ && shm_unlink(name_.c_str()) < 0)
        LOG_MESSAGE(Error, "%s: %s", name_.c_str(), std::strerror(errno));
}
