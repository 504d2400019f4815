#include "apps/variables/output.h"

#include <cstdio>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

bool flushOutput() {
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    pollfd output{STDOUT_FILENO, 0, 0};
    if (poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0)
        return false;
    if (!isWritten)
        throw std::runtime_error("Cannot write to standard output");
    return true;
}
