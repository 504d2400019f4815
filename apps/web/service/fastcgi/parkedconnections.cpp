#include "apps/web/service/fastcgi/parkedconnections.h"

#include <algorithm>
#include <sys/epoll.h>
#include <unistd.h>

ParkedConnections::~ParkedConnections() {
    for (const pollfd& connection : connections_) {
        poll_.remove(connection.fd);
        close(connection.fd);
    }
}

void ParkedConnections::add(int fd) {
    connections_.push_back({fd, POLLRDHUP, 0});
    // Edge-triggered: what the client sends stays unread, which must not wake the loop again and again.
    poll_.add(fd, this, EPOLLIN | EPOLLRDHUP | EPOLLET);
}

void ParkedConnections::event(EventType /*type*/) {
    if (::poll(connections_.data(), connections_.size(), 0) <= 0)
        return;
    const auto isGone = [](const pollfd& connection) { return connection.revents != 0; };
    for (const pollfd& connection : connections_) {
        if (isGone(connection)) {
            poll_.remove(connection.fd);
            close(connection.fd);
        }
    }
    std::erase_if(connections_, isGone);
}
