#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string_view>

/// Sends the pieces one after the other on a stream socket, in one system call where the kernel takes them
/// all. `more` tells the kernel that further data follows at once, so that it need not send a small segment
/// now. Retries after EINTR, and waits while the peer takes nothing. Subtracts the time of all waits from
/// `patience`, and after SIGINT or SIGTERM from one second that all calls of the process share. Stops with
/// the reason in errno on an error, and with ETIMEDOUT when that time is used up. Returns the number of bytes
/// that were sent. Does not own the descriptor.
std::size_t sendAll(int fd, std::span<const std::string_view> pieces, bool more,
                    std::chrono::nanoseconds& patience);
