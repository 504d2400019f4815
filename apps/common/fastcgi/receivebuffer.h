#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Bytes that have arrived on a connection and are not read yet. TCP delivers a FastCGI record in any number
/// of pieces; the pieces wait here until the record is complete, so that no reader sees a part of a record
/// and the event loop finds the socket empty.
///
///     | consumed | unread: header, content, padding, next header, ... |
class ReceiveBuffer {
public:
    /// Bytes of a FastCGI record header.
    static constexpr std::size_t HEADER_SIZE = 8;

    /// Bytes that one fill receives at most.
    static constexpr std::size_t MAX_FILL = 65536;

    enum class Result {
        Data,    ///< bytes were added
        Nothing, ///< no bytes have arrived
        Closed   ///< the peer has closed or reset the connection; bytes from before can still be taken
    };

    /// Receives once from the socket, without blocking, `limit` bytes at most. Does not own the descriptor.
    /// REQUIRES: 0 < limit <= MAX_FILL.
    Result fill(int fd, std::size_t limit = MAX_FILL);

    bool isEmpty() const { return bytes_.empty(); }

    /// The bytes that are known to be missing until the first unread record is complete: first those of its
    /// header, then those of its content and padding. 0 when it is complete.
    std::size_t missing() const;

    /// Removes up to `count` bytes from the front. The view is valid until the next fill or release.
    std::string_view take(std::size_t count);

    /// Frees the memory of consumed bytes, and with `all` also of unread ones.
    void release(bool all = false);

private:
    std::size_t recordSize() const;

    std::string bytes_;
    std::size_t consumed_ = 0;
};
