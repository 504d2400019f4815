#include "apps/web/service/fcgi.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/web/service/request.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int BACKLOG = 10;
constexpr int INHERITED_FD = 0;

Descriptor openReserved() {
    return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

void setOption(int fd, int level, int option) {
    const int on = 1;
    setsockopt(fd, level, option, &on, sizeof(on));
}

Descriptor listenOn(int port) {
    Descriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.isOpen())
        throwErrorNumber(__FILE__, __LINE__, "socket");
    setOption(fd.get(), SOL_SOCKET, SO_REUSEADDR);
    // Accepted sockets inherit this: the end of an answer is sent at once.
    setOption(fd.get(), IPPROTO_TCP, TCP_NODELAY);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0)
        throwErrorNumber(__FILE__, __LINE__, "bind");
    listen(fd.get(), BACKLOG);
    return fd;
}

} // namespace

Fcgi::Fcgi(int port, EventPoll& poll)
    : socket_(listenOn(port)), poll_(poll), parked_(poll), reserved_(openReserved()) {
    poll_.add(listening(), this, EPOLLIN);
}

Fcgi::Fcgi(EventPoll& poll) : poll_(poll), parked_(poll), reserved_(openReserved()) {
    poll_.add(listening(), this, EPOLLIN);
}

Fcgi::~Fcgi() {
    poll_.remove(listening());
    socket_.close();
    for (const auto& [id, request] : registry_)
        if (!request->isFinished())
            request->end();
}

int Fcgi::listening() const {
    return socket_.isOpen() ? socket_.get() : INHERITED_FD;
}

void Fcgi::event(EventType type) {
    if (type > Readable)
        return;
    Descriptor connection(accept4(listening(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.isOpen())
        acceptFailed();
    else if (isFull())
        parked_.add(std::move(connection));
    else
        serve(std::move(connection));
}

bool Fcgi::isFull() {
    if (registry_.size() < MAX_REQUESTS)
        return false;
    cleanup(); // safe: a marked request has left the loop and gets no more events
    const auto isOpen = [](const auto& entry) { return !entry.second->isFinished(); };
    return std::count_if(registry_.begin(), registry_.end(), isOpen) >=
           static_cast<std::ptrdiff_t>(MAX_REQUESTS);
}

void Fcgi::serve(Descriptor connection) {
    const int fd = connection.release();
    auto request = std::make_unique<Request>(this, fd, static_cast<int>(nextId_++));
    poll_.add(fd, request.get(), EPOLLIN);
    accepted_.emplace(request.get(), std::move(request));
}

void Fcgi::acceptFailed() {
    switch (errno) {
    case EINTR:
    case EAGAIN:
    case ECONNABORTED:
    case EPROTO:
        return; // the client has disconnected, or a signal came: the next event accepts
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
        return rejectConnection();
    default:
        throwErrorNumber(__FILE__, __LINE__, "accept");
    }
}

// Without a descriptor the connection stays in the queue and keeps the listening socket readable.
void Fcgi::rejectConnection() {
    LOG_MESSAGE(Warn, "Out of descriptors, connection rejected");
    reserved_.close();
    Descriptor(accept4(listening(), nullptr, nullptr, SOCK_CLOEXEC)).close();
    reserved_ = openReserved();
}

Request* Fcgi::request(unsigned int id) const {
    const auto found = registry_.find(id);
    return found == registry_.end() ? nullptr : found->second;
}

void Fcgi::addRequest(Request* request) {
    registry_[request->id()] = request;
    if (callback != nullptr)
        callback->handleRequest(request);
}

void Fcgi::removeRequest(Request* request) {
    poll_.remove(request->socket());
    LOG_MESSAGE(DebugMost, "REQUEST remove(%i)", static_cast<int>(request->id()));
    marked_.push_back(request->id());
}

void Fcgi::cleanup() {
    for (const unsigned int id : marked_) {
        const auto entry = registry_.extract(id);
        if (!entry) {
            LOG_MESSAGE(Warn, "Request %u no longer a valid request, though marked for deletion.", id);
            continue;
        }
        LOG_MESSAGE(DebugMost, "REQUEST delete(%i)", static_cast<int>(id));
        destroy(entry.mapped());
    }
    marked_.clear();
}

void Fcgi::destroy(Request* request) {
    if (accepted_.erase(request) == 0)
        delete request; // addRequest has taken the ownership
}
