#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What has arrived on a connection and is not read yet. TCP delivers a FastCGI record in as many pieces as
/// it likes; the pieces wait here until the record is whole, so that whoever reads a record never sees a part
/// of one, and the event loop finds the socket empty instead of readable for ever.
///
///     | consumed | unread: header, content, padding, next header, ... |
class ReceiveBuffer {
public:
    /// Bytes of a FastCGI record header.
    static constexpr std::size_t HEADER_SIZE = 8;

    enum class Result {
        Data,    ///< bytes were added
        Nothing, ///< nothing there just now
        Closed   ///< the peer has closed or reset the connection; what arrived before can still be taken
    };

    /// Receives once from the socket, without blocking. Does not own the descriptor.
    Result fill(int fd);

    /// True when a FastCGI record stands at the front with all of its content and padding.
    bool hasRecord() const;

    /// Removes up to `count` bytes from the front. The view holds until the next fill or release.
    std::string_view take(std::size_t count);

    /// Gives back the memory of what was taken, and with `all` also of what was not.
    void release(bool all = false);

private:
    std::string bytes_;
    std::size_t consumed_ = 0;
};
