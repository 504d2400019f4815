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

Descriptor openSpare() {
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
    setOption(fd.get(), IPPROTO_TCP,
              TCP_NODELAY); // accepted sockets inherit it: an answer's end goes out at once
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
    : socket_(listenOn(port)), poll_(poll), parked_(poll), spare_(openSpare()) {
    poll_.add(listening(), this, EPOLLIN);
}

Fcgi::Fcgi(EventPoll& poll) : poll_(poll), parked_(poll), spare_(openSpare()) {
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
    const int fd = accept4(listening(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        acceptFailed();
    else if (isFull())
        parked_.add(fd);
    else
        serve(fd);
}

bool Fcgi::isFull() {
    if (registry_.size() < MAX_REQUESTS)
        return false;
    cleanup(); // safe here: a marked request has left the loop, no event of this turn can reach it any more
    const auto isOpen = [](const auto& entry) { return !entry.second->isFinished(); };
    return std::count_if(registry_.begin(), registry_.end(), isOpen) >=
           static_cast<std::ptrdiff_t>(MAX_REQUESTS);
}

void Fcgi::serve(int fd) {
    const unsigned int id = nextId_++;
    auto& request = accepted_[id];
    request = std::make_unique<Request>(this, fd, id);
    poll_.add(fd, request.get(), EPOLLIN);
}

void Fcgi::acceptFailed() {
    switch (errno) {
    case EINTR:
    case EAGAIN:
    case ECONNABORTED:
    case EPROTO:
        return; // nobody there any more: the next readiness accepts
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
        return rejectConnection();
    default:
        throwErrorNumber(__FILE__, __LINE__, "accept");
    }
}

// Without descriptors the connection would stay in the queue and the listening socket readable for ever. The
// spare one makes room to accept it and to close it.
void Fcgi::rejectConnection() {
    LOG_MESSAGE(Warn, "Out of descriptors, connection turned away");
    spare_.close();
    Descriptor(accept4(listening(), nullptr, nullptr, SOCK_CLOEXEC)).close();
    spare_ = openSpare();
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
        if (registry_.erase(id) == 0) {
            LOG_MESSAGE(Warn, "Request %u no longer a valid request, though marked for deletion.", id);
            continue;
        }
        LOG_MESSAGE(DebugMost, "REQUEST delete(%i)", static_cast<int>(id));
        accepted_.erase(id);
    }
    marked_.clear();
}
