#include "apps/web/service/request.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/fastcgi/bodybudget.h"
#include "apps/web/service/fastcgi/recordbatch.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace {

constexpr char DEFAULT_HEADER[] = "Content-type: application/json\r\n\r\n";
constexpr std::size_t FLUSH_SIZE = 8192;
constexpr char ZEROS[8] = {};

// A number beyond 64 bits counts as the largest one.
std::size_t announcedSize(const std::string& text) {
    std::size_t size = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), size);
    return result.ec == std::errc::result_out_of_range ? SIZE_MAX : size;
}

void clear(std::stringstream& stream) {
    stream.str({});
    stream.clear();
}

} // namespace

Request::Request(RequestRegistry* fcgi, int fd, int id)
    : fcgi_(fcgi), socket_(fd), id_(static_cast<unsigned int>(id)) {}

Request::~Request() {
    freeBody();
    close();
}

void Request::event(EventType type) {
    try {
        if (type == Hangup)
            hangUp();
        else if (type == Priority || type == Readable)
            isPaused_ ? checkPeer() : receive();
    } catch (const std::exception& exception) {
        fail(exception.what());
    }
}

void Request::receive() {
    const ReceiveBuffer::Result result = input_.fill(socket_.get());
    while (!isClosed() && !isPaused_ && input_.missing() == 0)
        takeRecord();
    input_.release();
    if (result == ReceiveBuffer::Result::Closed && !isClosed())
        hangUp();
}

// While the body waits for its turn, its bytes stay unread.
void Request::checkPeer() {
    pollfd connection{socket_.get(), POLLRDHUP, 0};
    if (poll(&connection, 1, 0) > 0)
        hangUp();
}

void Request::resume() {
    isPaused_ = false;
    event(Readable);
}

void Request::drop(const char* reason) {
    LOG_MESSAGE(Warn, "Request %i: %s", static_cast<int>(id_), reason);
    hangUp();
}

bool Request::readRecord() {
    if (isClosed())
        throwError(__FILE__, __LINE__, "Request is already closed.");
    while (input_.missing() > 0)
        if (input_.fill(socket_.get(), input_.missing()) != ReceiveBuffer::Result::Data)
            return false;
    return takeRecord();
}

// REQUIRES: a complete record.
bool Request::takeRecord() {
    const std::string_view header = input_.take(header_.size());
    std::copy(header.begin(), header.end(), header_.begin());
    const unsigned char type = header_[1];
    const unsigned int length = static_cast<unsigned int>(header_[4]) << 8 | header_[5];
    const unsigned int padding = header_[6];
    LOG_MESSAGE(DebugAll, "REQUEST     rx(%i, %i, %i)", header_[2] << 8 | header_[3], type,
                static_cast<int>(length));
    const std::string_view content = input_.take(length + padding);
    if (type > MaxType)
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
    } else if (type == Params && length > 0) {
        addParams(data, length);
    } else if (type == Params) {
        askForBody();
    } else if (type == Stdin && length > 0) {
        growBody(content.size());
        appendPostData(data, length);
    } else if (type == Stdin) {
        requireRegistry();
        isReceiving_ = false;
        fcgi_->addRequest(this);
    }
}

void Request::askForBody() {
    const std::size_t size = announcedSize(param("CONTENT_LENGTH"));
    if (size == 0 || fcgi_ == nullptr)
        return;
    if (size > BodyBudget::LARGE_TOTAL)
        throw std::runtime_error("Body is too large");
    freeBody();
    holdsBody_ = true;
    isPaused_ = !fcgi_->askForBody(this, size);
}

void Request::growBody(std::size_t more) {
    if (fcgi_ == nullptr)
        return;
    holdsBody_ = true;
    if (!fcgi_->growBody(this, postData_.size() + more))
        throw std::runtime_error("Body is too large");
}

void Request::freeBody() {
    std::string().swap(postData_); // an emptied text keeps its memory
    if (std::exchange(holdsBody_, false))
        fcgi_->releaseBody(this);
}

int Request::getLength(unsigned char*& cursor, int& remaining) {
    const unsigned char* next = cursor;
    const int length = fastcgi::decodeLength(next, remaining);
    cursor += next - cursor;
    return length;
}

void Request::addParams(const unsigned char* data, int length) {
    std::string_view content(reinterpret_cast<const char*>(data), static_cast<std::size_t>(length));
    for (fastcgi::Pair pair; !content.empty() && fastcgi::takePair(content, pair);)
        addParam(std::string(pair.name), std::string(pair.value));
}

void Request::addParam(const std::string& name, const std::string& value) {
    params_[name] = value;
}

void Request::appendPostData(const unsigned char* data, int length) {
    if (postData_.empty())
        postData_.reserve(std::min(announcedSize(param("CONTENT_LENGTH")), BodyBudget::LARGE_TOTAL));
    postData_.append(reinterpret_cast<const char*>(data), static_cast<std::size_t>(length));
}

const std::string& Request::param(const std::string& name) const {
    static const std::string MISSING;
    const auto found = params_.find(name);
    return found == params_.end() ? MISSING : found->second;
}

bool Request::waitsFor(int tag) const {
    const int* value = std::any_cast<int>(&context);
    return value != nullptr && *value == tag;
}

void Request::begin(unsigned short requestId, bool keepConnection) {
    params_.clear();
    clear(output_);
    clear(error_);
    freeBody();
    context.reset();
    headerWritten_ = false;
    finished_ = false;
    isReceiving_ = true;
    keepConnection_ = keepConnection;
    patience_ = SEND_TIMEOUT;
    requestId_ = requestId;
    LOG_MESSAGE(DebugMost, "REQUEST  begin(%i, %i, %s)", socket_.get(), requestId,
                keepConnection ? "true" : "false");
}

std::stringstream& Request::output() {
    if (!headerWritten_)
        writeHeader(DEFAULT_HEADER);
    if (output_.view().size() > FLUSH_SIZE)
        sendOutput();
    return output_;
}

void Request::write(std::string_view text) {
    if (text.size() <= FLUSH_SIZE)
        output() << text;
    else if (output().good())
        sendStream(Stdout, output_, text);
}

void Request::writeHeader(const char* header) {
    headerWritten_ = true;
    if (header == nullptr)
        output_.setstate(std::ios::badbit);
    else
        output_ << header;
}

void Request::requireRegistry() const {
    if (fcgi_ == nullptr)
        throw std::runtime_error("Request has no Fcgi.");
}

void Request::sendOutput() {
    sendStream(Stdout, output_);
}

void Request::sendError() {
    requireRegistry();
    if (!error_.view().empty())
        sendStream(Stderr, error_);
}

// Sends the stream's content and behind it `text`.
void Request::sendStream(RecordType type, std::stringstream& stream, std::string_view text) {
    requireRegistry();
    header_[1] = type;
    RecordBatch records(header_, requestId_);
    records.add(type, stream.view());
    records.add(type, text);
    sendRecords(records, true); // at least END_REQUEST follows
    stream.str({});
}

void Request::end() {
    requireRegistry();
    RecordBatch records(header_, requestId_);
    records.add(Stdout, output_.view());
    records.add(Stderr, error_.view());
    records.add(EndRequest, std::string_view(ZEROS, sizeof(ZEROS))); // status 0, FCGI_REQUEST_COMPLETE
    sendRecords(records, false);
    LOG_MESSAGE(DebugMost, "REQUEST    end(%i, %i)", static_cast<int>(id_), requestId_);
    finished_ = true;
    context.reset();
    error_.str({});
    output_ = std::stringstream(); // an emptied stream keeps its memory
    freeBody();
    if (!keepConnection_ || sendFailed_ || !fcgi_->keepsConnections()) {
        fcgi_->removeRequest(this);
        close();
    }
}

int Request::close() {
    shutdown(socket_.get(), SHUT_RDWR);
    return socket_.close();
}

void Request::hangUp() {
    if (isClosed())
        return;
    if (fcgi_ != nullptr)
        fcgi_->removeRequest(this);
    close();
    context.reset();
    freeInput();
}

void Request::fail(const char* reason) {
    LOG_MESSAGE(Error, "%s", reason);
    if (isFinished())
        return;
    keepConnection_ = false; // the rest of its input may still come and belongs to no other request
    try {
        end();
    } catch (const std::exception& exception) {
        LOG_MESSAGE(Error, "%s", exception.what());
    }
    freeInput();
}

void Request::freeInput() {
    isPaused_ = false;
    params_.clear();
    freeBody();
    input_.release(true);
}

int Request::writeRecord(const char* data, unsigned int length) {
    RecordBatch records(header_, requestId_);
    records.add(header_[1], {data, length});
    return sendRecords(records, false);
}

// `more` says that another record follows at once.
int Request::sendRecords(const RecordBatch& records, bool more) {
    if (isClosed())
        throwErrorNumber(__FILE__, __LINE__, "Request is already closed.");
    // After a failure, part of a record may have been sent: the connection is unusable.
    sendFailed_ = sendFailed_ || !records.send(socket_.get(), more, patience_);
    return sendFailed_ ? -1 : 0;
}
