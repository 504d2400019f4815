#include "apps/common/files/standarddescriptors.h"

#include <fcntl.h>
#include <unistd.h>

void openStandardDescriptors() {
    int fd;
    do {
        fd = open("/dev/null", O_RDWR); // the kernel assigns the lowest free number
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO)
        close(fd);
}
