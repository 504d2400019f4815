#pragma once

#include <array>
#include <cstddef>
#include <string_view>

/// Sends the pieces one after the other on a stream socket, in one system call where the kernel takes them
/// all. `more` tells the kernel that further data follows at once, so that it need not send a small segment
/// now. Retries after EINTR, and waits while the peer takes nothing, at most `timeoutMs` milliseconds without
/// progress; then, or on an error, it stops with the reason in errno (ETIMEDOUT for the timeout). Returns the
/// number of bytes that were sent. Does not own the descriptor.
std::size_t sendAll(int fd, const std::array<std::string_view, 4>& pieces, bool more, int timeoutMs);
