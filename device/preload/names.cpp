#include "device/preload/preload.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>

// The wrappers of named shared memory and named semaphores.

namespace {

constinit Next<int(const char*, int, mode_t)> nextShmOpen("shm_open");
constinit Next<int(const char*)> nextShmUnlink("shm_unlink");
constinit Next<sem_t*(const char*, int, ...)> nextSemOpen("sem_open");
constinit Next<int(const char*)> nextSemUnlink("sem_unlink");

// The name argument for the original.
class NameArgument {
public:
    explicit NameArgument(const char* name) : text_(name) {
        const char* const prefix = std::getenv("VIRTUAL_DEVICE_NAME");
        if (prefix != nullptr)
            text_ = mappedName(prefix, name, mapped_, sizeof mapped_) ? mapped_ : nullptr;
        if (!isUsable())
            errno = ENAMETOOLONG;
    }

    // False when the mapped name is too long; errno is ENAMETOOLONG then.
    bool isUsable() const { return text_ != nullptr; }
    const char* text() const { return text_; }

private:
    char mapped_[NAME_MAX + 1];
    const char* text_;
};

} // namespace

INTERPOSED int shm_open(const char* name, int flags, mode_t mode) {
    const NameArgument argument(name);
    return argument.isUsable() ? nextShmOpen(argument.text(), flags, mode) : -1;
}

INTERPOSED int shm_unlink(const char* name) {
    const NameArgument argument(name);
    return argument.isUsable() ? nextShmUnlink(argument.text()) : -1;
}

INTERPOSED sem_t* sem_open(const char* name, int flags, ...) noexcept {
    const NameArgument argument(name);
    if (!argument.isUsable())
        return SEM_FAILED;
    if ((flags & O_CREAT) == 0)
        return nextSemOpen(argument.text(), flags);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    const unsigned int value = va_arg(arguments, unsigned int);
    va_end(arguments);
    return nextSemOpen(argument.text(), flags, mode, value);
}

INTERPOSED int sem_unlink(const char* name) noexcept {
    const NameArgument argument(name);
    return argument.isUsable() ? nextSemUnlink(argument.text()) : -1;
}
