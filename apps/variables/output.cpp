#include "apps/variables/output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

namespace {

[[noreturn]] void fail() {
    throw std::runtime_error("Cannot write to standard output");
}

} // namespace

bool flushOutput() {
    const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    pollfd output{STDOUT_FILENO, 0, 0};
    if (poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0)
        return false;
    if (!isWritten)
        fail();
    return true;
}

void PatientOutput::add(std::string_view line) {
    if (text_.size() - written_ + line.size() > LIMIT)
        ++dropped_;
    else
        text_ += line;
}

void PatientOutput::finish() {
    while (isWaiting() && write(-1)) {
    }
    if (dropped_ > 0)
        std::fprintf(stderr, "variables: %lu changes are missing, because the output was not read\n",
                     dropped_);
}

bool PatientOutput::write(int patienceMs) {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    while (poll(&output, 1, isWaiting() ? patienceMs : 0) > 0) {
        if ((output.revents & POLLERR) != 0)
            return false;
        if (!isWaiting())
            return true;
        writePiece();
    }
    return true;
}

// A pipe that poll(2) reports as writable takes PIPE_BUF bytes without waiting.
void PatientOutput::writePiece() {
    const std::size_t size = std::min<std::size_t>(text_.size() - written_, PIPE_BUF);
    const ssize_t count = ::write(STDOUT_FILENO, text_.data() + written_, size);
    if (count < 0 && errno != EINTR && errno != EAGAIN && errno != EPIPE)
        fail();
    written_ += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    if (written_ == text_.size() || written_ > LIMIT) {
        text_.erase(0, written_);
        written_ = 0;
    }
}
