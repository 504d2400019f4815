#include "apps/web/service/request.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/fastcgi/sendall.h"
#include "apps/web/service/fcgi.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char DEFAULT_HEADER[] = "Content-type: application/json\r\n\r\n";
constexpr std::size_t FLUSH_SIZE = 8192;
constexpr char ZEROS[8] = {};
constexpr std::size_t MAX_RESERVED = 96U << 20;

// The bytes to make room for when a body of the length `text` begins to arrive: a body that outgrows its
// room again and again is held twice while it moves. What the web server says is not trusted beyond a limit.
std::size_t roomFor(const std::string& text) {
    std::size_t length = 0;
    std::from_chars(text.data(), text.data() + text.size(), length);
    return std::min(length, MAX_RESERVED);
}

} // namespace

Request::Request(Fcgi* fcgi, int fd, unsigned int id) : fcgi_(fcgi), fd_(fd), id_(id) {}

Request::~Request() {
    close();
}

void Request::event(EventType type) {
    try {
        if (type == Hangup)
            hangUp();
        else if (type == Priority || type == Readable)
            receive();
    } catch (const std::exception& exception) {
        fail(exception.what());
    }
}

void Request::receive() {
    const ReceiveBuffer::Result result = input_.fill(fd_);
    while (!isClosed() && input_.hasRecord())
        readRecord();
    input_.release();
    if (result == ReceiveBuffer::Result::Closed && !isClosed())
        hangUp();
}

bool Request::readRecord() {
    if (isClosed())
        throwError(__FILE__, __LINE__, "Request is already closed.");
    const std::string_view header = input_.take(header_.size());
    if (header.size() != header_.size())
        return false;
    std::copy(header.begin(), header.end(), header_.begin());
    const unsigned char type = header_[1];
    const unsigned int length = static_cast<unsigned int>(header_[4]) << 8 | header_[5];
    const unsigned int padding = header_[6];
    LOG_MESSAGE(DebugAll, "REQUEST     rx(%i, %i, %i)", header_[2] << 8 | header_[3], type,
                static_cast<int>(length));
    const std::string_view content = input_.take(length + padding);
    if (content.size() != length + padding || type > MaxType)
        return false;
    handleRecord(type, content.substr(0, length));
    return true;
}

void Request::handleRecord(unsigned char type, std::string_view content) {
    const auto* data = reinterpret_cast<const unsigned char*>(content.data());
    const int length = static_cast<int>(content.size());
    if (type == BeginRequest) {
        const bool keepConnection = length > 2 && (data[2] & 1) != 0;
        begin(static_cast<unsigned short>(header_[2] << 8 | header_[3]), keepConnection);
    } else if (type == Params) {
        addParams(data, length);
    } else if (type == Stdin && length > 0) {
        appendPostData(data, length);
    } else if (type == Stdin) {
        fcgi_->addRequest(this);
    }
}

int Request::getLength(const unsigned char*& cursor, int& remaining) {
    if (remaining < 1)
        return -1;
    const unsigned char first = *cursor++;
    --remaining;
    if (first < 128)
        return first;
    if (remaining < 3) {
        remaining = 0;
        return -1;
    }
    const int length = (first & 0x7F) << 24 | cursor[0] << 16 | cursor[1] << 8 | cursor[2];
    cursor += 3;
    remaining -= 3;
    return length;
}

void Request::addParams(const unsigned char* data, int length) {
    while (length > 0) {
        const int nameLength = getLength(data, length);
        const int valueLength = getLength(data, length);
        if (nameLength < 0 || valueLength < 0 || (nameLength == 0 && valueLength == 0))
            return;
        if (nameLength > length || valueLength > length - nameLength) // their sum may not fit an int
            return;
        const char* text = reinterpret_cast<const char*>(data);
        addParam({text, static_cast<std::size_t>(nameLength)},
                 {text + nameLength, static_cast<std::size_t>(valueLength)});
        data += nameLength + valueLength;
        length -= nameLength + valueLength;
    }
}

void Request::addParam(const std::string& name, const std::string& value) {
    params_[name] = value;
}

void Request::appendPostData(const unsigned char* data, int length) {
    if (postData_.empty())
        postData_.reserve(roomFor(param("CONTENT_LENGTH")));
    postData_.append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(length));
}

const std::string& Request::param(const std::string& name) const {
    static const std::string MISSING;
    const auto found = params_.find(name);
    return found == params_.end() ? MISSING : found->second;
}

void Request::begin(unsigned short requestId, bool keepConnection) {
    params_.clear();
    output_.reset();
    error_.reset();
    postData_.clear();
    context.reset();
    headerWritten_ = false;
    finished_ = false;
    keepConnection_ = keepConnection;
    requestId_ = requestId;
    LOG_MESSAGE(DebugMost, "REQUEST  begin(%i, %i, %s)", fd_, requestId, keepConnection ? "true" : "false");
}

std::ostream& Request::output() {
    if (!headerWritten_)
        writeHeader(DEFAULT_HEADER);
    if (output_.text().size() > FLUSH_SIZE)
        sendOutput();
    return output_;
}

void Request::writeHeader(const char* header) {
    headerWritten_ = true;
    if (header == nullptr)
        output_.setstate(std::ios::badbit);
    else
        output_ << header;
}

void Request::sendOutput() {
    sendStream(output_, Stdout);
}

void Request::sendError() {
    sendStream(error_, Stderr);
}

void Request::sendStream(TextStream& stream, RecordType type) {
    if (fcgi_ == nullptr)
        throw std::runtime_error("Request has no Fcgi.");
    header_[1] = type;
    const std::string_view text = stream.text();
    writeRecord(text.data(), static_cast<unsigned int>(text.size()), true); // END_REQUEST comes after it
    stream.erase();
}

void Request::end() {
    if (fcgi_ == nullptr)
        throw std::runtime_error("Request has no Fcgi.");
    sendOutput();
    sendError();
    header_[1] = EndRequest;
    writeRecord(ZEROS, sizeof(ZEROS)); // status 0, FCGI_REQUEST_COMPLETE
    LOG_MESSAGE(DebugMost, "REQUEST    end(%i, %i)", static_cast<int>(id_), requestId_);
    finished_ = true;
    context.reset();
    output_.reset();
    std::string().swap(postData_); // assigning an empty text would keep its memory
    if (!keepConnection_ || sendFailed_) {
        fcgi_->removeRequest(this);
        close();
    }
}

int Request::close() {
    if (isClosed())
        return 0;
    shutdown(fd_, SHUT_RDWR);
    const int result = ::close(fd_);
    fd_ = -1;
    return result;
}

void Request::hangUp() {
    if (isClosed())
        return;
    fcgi_->removeRequest(this);
    close();
    context.reset();
    params_.clear();
    std::string().swap(postData_); // assigning an empty text would keep its memory
    input_.release(true);
}

void Request::fail(const char* reason) {
    LOG_MESSAGE(Error, "%s", reason);
    if (isFinished())
        return;
    keepConnection_ = false; // its input may not be over: what comes next belongs to no request
    try {
        end();
    } catch (const std::exception& exception) {
        LOG_MESSAGE(Error, "%s", exception.what());
    }
}

int Request::writeRecord(const char* data, unsigned int length, bool more) {
    if (isClosed())
        throwErrorNumber(__FILE__, __LINE__, "Request is already closed.");
    if (sendFailed_)
        return -1;
    const unsigned int padding = (8 - length % 8) % 8;
    while (length > 0) {
        const unsigned int chunk = std::min(length, MAX_CONTENT);
        const bool isLast = chunk == length;
        LOG_MESSAGE(DebugAll, "REQUEST     tx(%i, %i, %i)", requestId_, header_[1], static_cast<int>(chunk));
        if (sendRecord(data, chunk, isLast ? padding : 0, more || !isLast) < 0) {
            sendFailed_ = true; // part of a record may have gone out: the connection is of no more use
            return -1;
        }
        data += chunk;
        length -= chunk;
    }
    return 0;
}

int Request::sendRecord(const char* content, unsigned int length, unsigned int padding, bool more) {
    header_[2] = static_cast<unsigned char>(requestId_ >> 8);
    header_[3] = static_cast<unsigned char>(requestId_ & 0xFF);
    header_[4] = static_cast<unsigned char>(length >> 8);
    header_[5] = static_cast<unsigned char>(length & 0xFF);
    header_[6] = static_cast<unsigned char>(padding);
    const std::array<std::string_view, 3> pieces{
        std::string_view(reinterpret_cast<const char*>(header_.data()), header_.size()),
        std::string_view(content, length), std::string_view(ZEROS, padding)};
    const std::size_t sent = sendAll(fd_, pieces, more, SEND_TIMEOUT_MS);
    if (sent < header_.size() + length)
        return -1;
    if (sent < header_.size() + length + padding)
        LOG_MESSAGE(Warn, "Could not write padding: %s", strerror(errno));
    return 0;
}
