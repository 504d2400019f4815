#include "device/preload/preload.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>

void* nextFunction(const char* name) {
    const int error = errno;
    void* const function = dlsym(RTLD_NEXT, name);
    if (function == nullptr)
        std::abort();
    errno = error;
    return function;
}

PathArgument::PathArgument(const char* path)
    : kind_(mappedPath(std::getenv("VIRTUAL_DEVICE_ROOT"), path, mapped_, sizeof mapped_)), text_(path) {
    if (kind_ == PathKind::TooLong)
        errno = ENAMETOOLONG;
    else if (kind_ != PathKind::Elsewhere)
        text_ = mapped_;
}
