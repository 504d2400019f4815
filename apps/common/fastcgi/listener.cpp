#include "apps/common/fastcgi/listener.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int INHERITED_FD = 0;

Descriptor openReserved() {
    return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

void setOption(int fd, int level, int option) {
    const int on = 1;
    setsockopt(fd, level, option, &on, sizeof(on));
}

Descriptor listenOn(int port, int backlog) {
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
    listen(fd.get(), backlog);
    return fd;
}

} // namespace

Listener::Listener(int port, EventPoll& poll, EventPoll::Callback* owner, int backlog)
    : socket_(listenOn(port, backlog)), poll_(poll), owner_(owner), reserved_(openReserved()) {
    poll_.add(fd(), owner_, EPOLLIN);
}

Listener::Listener(EventPoll& poll, EventPoll::Callback* owner)
    : poll_(poll), owner_(owner), reserved_(openReserved()) {
    setOption(fd(), IPPROTO_TCP, TCP_NODELAY);
    poll_.add(fd(), owner_, EPOLLIN);
}

Listener::~Listener() {
    leave();
}

int Listener::fd() const {
    return socket_.isOpen() ? socket_.get() : INHERITED_FD;
}

bool Listener::isListening(int fd) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &value, &size) == 0 && value != 0;
}

Descriptor Listener::accept() {
    Descriptor connection(accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.isOpen())
        acceptFailed();
    return connection;
}

void Listener::acceptFailed() {
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
void Listener::rejectConnection() {
    const bool hasReserved = reserved_.close() == 0;
    Descriptor rejected(hasReserved ? accept4(fd(), nullptr, nullptr, SOCK_CLOEXEC) : -1);
    if (!rejected.isOpen())
        return pause();
    LOG_MESSAGE(Warn, "Out of descriptors, connection rejected");
    rejected.close();
    reserved_ = openReserved();
}

void Listener::pause() {
    LOG_MESSAGE(Warn, "Out of descriptors, no connections accepted for now");
    leave();
}

void Listener::leave() {
    if (!std::exchange(isPaused_, true))
        poll_.remove(fd());
}

void Listener::stop() {
    isStopped_ = true;
    leave();
}

void Listener::endPause() {
    if (!reserved_.isOpen())
        reserved_ = openReserved();
    if (!isPaused_ || isStopped_ || !reserved_.isOpen())
        return;
    poll_.add(fd(), owner_, EPOLLIN);
    isPaused_ = false;
}
