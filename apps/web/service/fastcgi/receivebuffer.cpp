#include "apps/web/service/fastcgi/receivebuffer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/socket.h>

ReceiveBuffer::Result ReceiveBuffer::fill(int fd) {
    static std::array<char, 65536> chunk; // one for all connections: what is received is copied at once
    const ssize_t received = recv(fd, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (received > 0) {
        bytes_.append(chunk.data(), static_cast<std::size_t>(received));
        return Result::Data;
    }
    // Interrupted or woken for nothing: the loop comes back. Any other error is the end of the connection.
    const bool comesBack = received < 0 && (errno == EINTR || errno == EAGAIN);
    return comesBack ? Result::Nothing : Result::Closed;
}

bool ReceiveBuffer::hasRecord() const {
    const std::size_t unread = bytes_.size() - consumed_;
    if (unread < HEADER_SIZE)
        return false;
    const auto byte = [this](std::size_t i) { return static_cast<unsigned char>(bytes_[consumed_ + i]); };
    const std::size_t content = static_cast<std::size_t>(byte(4)) << 8 | byte(5);
    return unread >= HEADER_SIZE + content + byte(6);
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
