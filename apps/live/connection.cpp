#include "apps/live/connection.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/fastcgi/records.h"

#include <cerrno>
#include <exception>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr std::size_t MAX_PARAMS = 65536;
constexpr unsigned char ABORT_REQUEST = 2;
// What the kernel holds for a stream's client that does not read is old when it arrives.
constexpr int SEND_BUFFER = 32768;

} // namespace

const std::string& HttpRequest::param(std::string_view name) const {
    static const std::string MISSING;
    const auto found = params.find(name);
    return found == params.end() ? MISSING : found->second;
}

const char* reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 304:
        return "Not Modified";
    case 400:
        return "Bad Request";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 412:
        return "Precondition Failed";
    case 413:
        return "Content Too Large";
    case 422:
        return "Unprocessable Content";
    case 503:
        return "Service Unavailable";
    default:
        return "Internal Server Error";
    }
}

Connection::Connection(EventPoll& poll, Descriptor socket, Owner& owner)
    : poll_(poll), owner_(owner), socket_(std::move(socket)) {
    poll_.add(socket_.get(), this, EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET);
}

Connection::~Connection() {
    freeBody();
}

void Connection::close() {
    if (!socket_.isOpen())
        return;
    socket_.close(); // also leaves the poll
    freeBody();
    output_.reset();
    owner_.closed(*this);
}

void Connection::event(EventType type) {
    if (type == Hangup)
        return close();
    try {
        receive();
        sendMore();
    } catch (const std::exception& exception) {
        LOG_MESSAGE(Error, "Connection closed: %s", exception.what());
        close();
    }
}

void Connection::receive() {
    auto result = ReceiveBuffer::Result::Data;
    while (socket_.isOpen() && result == ReceiveBuffer::Result::Data) {
        result = input_.fill(socket_.get());
        while (socket_.isOpen() && input_.missing() == 0)
            takeRecord();
        input_.release();
    }
    if (result == ReceiveBuffer::Result::Closed)
        close();
}

void Connection::takeRecord() {
    const std::string_view header = input_.take(ReceiveBuffer::HEADER_SIZE);
    const auto byte = [header](std::size_t i) { return static_cast<unsigned char>(header[i]); };
    const unsigned char type = byte(1);
    const auto id = static_cast<unsigned short>(byte(2) << 8 | byte(3));
    const std::size_t length = static_cast<std::size_t>(byte(4)) << 8 | byte(5);
    const std::string_view content = input_.take(length + byte(6)).substr(0, length);
    if (type == ABORT_REQUEST)
        close();
    else if (type == fastcgi::BeginRequest)
        begin(id, length > 2 && (content[2] & 1) != 0);
    else if (type == fastcgi::Params && isReceiving_)
        addParams(content);
    else if (type == fastcgi::Stdin && isReceiving_ && length > 0)
        addBody(content);
    else if (type == fastcgi::Stdin && isReceiving_)
        complete();
}

// A web server sends its next request when it has the whole answer.
void Connection::begin(unsigned short requestId, bool keep) {
    if (!isIdle())
        return close();
    request_ = {};
    paramsSize_ = 0;
    requestId_ = requestId;
    keep_ = keep;
    isHead_ = false;
    isReceiving_ = true;
}

void Connection::addParams(std::string_view content) {
    paramsSize_ += content.size();
    if (paramsSize_ > MAX_PARAMS)
        return close();
    for (fastcgi::Pair pair; !content.empty() && fastcgi::takePair(content, pair);)
        request_.params.insert_or_assign(std::string(pair.name), std::string(pair.value));
}

void Connection::addBody(std::string_view content) {
    if (request_.body.size() + content.size() > MAX_BODY)
        return refuse(413);
    if (!owner_.accountBody(static_cast<std::ptrdiff_t>(content.size())))
        return refuse(503);
    request_.body += content;
}

void Connection::freeBody() {
    owner_.accountBody(-static_cast<std::ptrdiff_t>(request_.body.size()));
    std::string().swap(request_.body);
}

// The rest of the body is not read.
void Connection::refuse(int status) {
    keep_ = false;
    isReceiving_ = false;
    owner_.refuse(*this, status);
}

void Connection::complete() {
    isReceiving_ = false;
    isHead_ = request_.param("REQUEST_METHOD") == "HEAD";
    const HttpRequest request = std::exchange(request_, {});
    owner_.accountBody(-static_cast<std::ptrdiff_t>(request.body.size()));
    owner_.handle(*this, request);
}

void Connection::answer(const HttpAnswer& answer) {
    const std::string head = "Status: " + std::to_string(answer.status) + " " + reasonPhrase(answer.status) +
                             "\r\n" + (answer.status == 304 ? "" : "Content-Type: " + answer.type + "\r\n") +
                             answer.headers + "\r\n";
    std::string bytes;
    bytes.reserve(head.size() + answer.body.size() + 64);
    fastcgi::appendOutput(bytes, requestId_, head);
    if (!isHead_)
        fastcgi::appendOutput(bytes, requestId_, answer.body);
    fastcgi::appendEnd(bytes, requestId_);
    closeWhenSent_ = !keep_;
    send(std::make_shared<const Output>(std::move(bytes)));
}

void Connection::beginStream(const std::string& head) {
    isStream_ = true;
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
    send(std::make_shared<const Output>(frame(head)));
}

std::string Connection::frame(std::string_view text) const {
    std::string bytes;
    fastcgi::appendOutput(bytes, requestId_, text);
    return bytes;
}

void Connection::send(SharedOutput output) {
    output_ = std::move(output);
    sent_ = 0;
    sendMore();
}

void Connection::sendMore() {
    while (socket_.isOpen() && output_ != nullptr) {
        const std::string& bytes = output_->bytes();
        const ssize_t count =
            ::send(socket_.get(), bytes.data() + sent_, bytes.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EAGAIN)
            return;
        if (count < 0 && errno != EINTR)
            return close();
        sent_ += count < 0 ? 0 : static_cast<std::size_t>(count);
        if (sent_ < bytes.size())
            continue;
        output_.reset();
        if (closeWhenSent_)
            return close();
        owner_.ready(*this);
    }
}
