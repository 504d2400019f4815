#include "apps/web/service/fastcgi/recordbatch.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/fastcgi/sendall.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr char ZEROS[8] = {};

unsigned char lowByte(std::size_t value) {
    return static_cast<unsigned char>(value & 0xFF);
}

} // namespace

RecordBatch::RecordBatch(const Header& header, unsigned short requestId)
    : header_(header), requestId_(requestId) {
    header_[2] = lowByte(requestId >> 8U);
    header_[3] = lowByte(requestId);
}

void RecordBatch::add(unsigned char type, std::string_view text) {
    for (; !text.empty(); text.remove_prefix(pieces_.rbegin()[1].size()))
        addRecord(type, text.substr(0, fastcgi::MAX_CONTENT));
}

// Adds three pieces: header, content, padding.
void RecordBatch::addRecord(unsigned char type, std::string_view content) {
    const std::size_t length = content.size();
    const std::size_t padding = (8 - length % 8) % 8;
    LOG_MESSAGE(DebugAll, "REQUEST     tx(%i, %i, %i)", requestId_, type, static_cast<int>(length));
    header_[1] = type;
    header_[4] = lowByte(length >> 8U);
    header_[5] = lowByte(length);
    header_[6] = lowByte(padding);
    headers_.push_back(header_);
    pieces_.emplace_back(reinterpret_cast<const char*>(headers_.back().data()), header_.size());
    pieces_.push_back(content);
    pieces_.emplace_back(ZEROS, padding);
    size_ += sizeof(Header) + length + padding;
}

bool RecordBatch::send(int fd, bool more, std::chrono::nanoseconds& patience) const {
    const std::size_t sent = sendAll(fd, pieces_, more, patience);
    if (sent == size_)
        return true;
    if (sent + pieces_.back().size() < size_)
        return false;
    LOG_MESSAGE(Warn, "Could not write padding: %s", strerror(errno));
    return true;
}
