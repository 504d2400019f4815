#include "apps/common/fastcgi/receivebuffer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/socket.h>

ReceiveBuffer::Result ReceiveBuffer::fill(int fd, std::size_t limit) {
    static std::array<char, MAX_FILL> chunk; // one for all connections: received bytes are copied at once
    const ssize_t received = recv(fd, chunk.data(), std::min(limit, chunk.size()), MSG_DONTWAIT);
    if (received > 0) {
        bytes_.append(chunk.data(), static_cast<std::size_t>(received));
        return Result::Data;
    }
    // After EINTR and EAGAIN the loop calls again. Any other error is the end of the connection.
    const bool canRetry = received < 0 && (errno == EINTR || errno == EAGAIN);
    return canRetry ? Result::Nothing : Result::Closed;
}

std::size_t ReceiveBuffer::missing() const {
    const std::size_t unread = bytes_.size() - consumed_;
    const std::size_t needed = unread < HEADER_SIZE ? HEADER_SIZE : recordSize();
    return unread < needed ? needed - unread : 0;
}

// REQUIRES: a complete header.
std::size_t ReceiveBuffer::recordSize() const {
    const auto byte = [this](std::size_t i) { return static_cast<unsigned char>(bytes_[consumed_ + i]); };
    const std::size_t content = static_cast<std::size_t>(byte(4)) << 8 | byte(5);
    return HEADER_SIZE + content + byte(6);
}

std::string_view ReceiveBuffer::take(std::size_t count) {
    const std::string_view taken = std::string_view(bytes_).substr(consumed_, count);
    consumed_ += taken.size();
    return taken;
}

void ReceiveBuffer::release(bool all) {
    if (all || consumed_ == bytes_.size())
        std::string().swap(bytes_); // assigning an empty text would keep the memory
    else
        bytes_.erase(0, consumed_);
    consumed_ = 0;
}
