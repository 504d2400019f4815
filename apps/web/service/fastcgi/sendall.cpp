#include "apps/web/service/fastcgi/sendall.h"

#include "apps/common/event/eventpoll.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <vector>

namespace {

constexpr int POLL_MS = 50; // a signal between check and poll is noticed after this time

// Moves the front of `parts` behind the first `count` bytes.
void dropFront(std::span<iovec>& parts, std::size_t count) {
    while (!parts.empty() && count >= parts.front().iov_len) {
        count -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<char*>(parts.front().iov_base) + count;
        parts.front().iov_len -= count;
    }
}

// The time left for waiting. A web server that still reads gets its answer when the process terminates.
std::chrono::nanoseconds& timeLeft(std::chrono::nanoseconds& patience) {
    static std::chrono::nanoseconds terminating = std::chrono::seconds(1);
    return EventPoll::shouldTerminate() ? terminating : patience;
}

bool waitWritable(int fd, std::chrono::nanoseconds& patience) {
    using Clock = std::chrono::steady_clock;
    pollfd waiting{fd, POLLOUT, 0};
    while (timeLeft(patience).count() > 0) {
        const Clock::time_point begin = Clock::now();
        const int ready = poll(&waiting, 1, POLL_MS);
        timeLeft(patience) -= Clock::now() - begin;
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
    errno = ETIMEDOUT;
    return false;
}

} // namespace

std::size_t sendAll(int fd, std::span<const std::string_view> pieces, bool more,
                    std::chrono::nanoseconds& patience) {
    std::vector<iovec> storage(pieces.size());
    std::transform(pieces.begin(), pieces.end(), storage.begin(), [](std::string_view piece) {
        return iovec{const_cast<char*>(piece.data()), piece.size()}; // sendmsg does not write to it
    });
    std::span<iovec> parts(storage);
    std::size_t total = 0;
    dropFront(parts, 0);
    while (!parts.empty()) {
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = std::min<std::size_t>(parts.size(), IOV_MAX);
        const ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT | (more ? MSG_MORE : 0));
        if (sent >= 0) {
            total += static_cast<std::size_t>(sent);
            dropFront(parts, static_cast<std::size_t>(sent));
        } else if (errno != EINTR && !(errno == EAGAIN && waitWritable(fd, patience))) {
            break;
        }
    }
    return total;
}
