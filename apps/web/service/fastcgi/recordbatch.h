#pragma once

#include "apps/common/fastcgi/records.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <string_view>
#include <vector>

/// Records of one request that are sent together, in one system call where the kernel takes them all. Each
/// text begins a record, and padding makes the length of each record a multiple of 8: so a text that is
/// aligned in memory stays aligned in the socket's buffer, and the kernel copies it by words.
class RecordBatch {
public:
    using Header = std::array<unsigned char, 8>;

    /// `header` holds the version and the reserved byte of all records.
    RecordBatch(const Header& header, unsigned short requestId);

    /// Adds records with this text; an empty text adds none. The text must stay unchanged until send.
    void add(unsigned char type, std::string_view text);

    /// Sends all records. `more` and `patience` are those of sendAll. Returns false if the peer has not got
    /// all of them: part of a record may have been sent. If only the last padding is missing, writes a Warn
    /// line and returns true.
    bool send(int fd, bool more, std::chrono::nanoseconds& patience) const;

private:
    void addRecord(unsigned char type, std::string_view content);

    Header header_;
    int requestId_;
    std::deque<Header> headers_; // its elements stay where they are
    std::vector<std::string_view> pieces_;
    std::size_t size_ = 0;
};
