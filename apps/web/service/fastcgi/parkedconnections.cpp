#include "apps/web/service/fastcgi/parkedconnections.h"

#include <poll.h>
#include <sys/epoll.h>
#include <utility>

ParkedConnections::~ParkedConnections() {
    for (const Descriptor& connection : connections_)
        poll_.remove(connection.get());
}

void ParkedConnections::add(Descriptor connection) {
    // Edge-triggered: bytes that stay unread must not wake the loop again and again.
    poll_.add(connection.get(), this, EPOLLIN | EPOLLRDHUP | EPOLLET);
    connections_.push_back(std::move(connection));
}

void ParkedConnections::event(EventType /*type*/) {
    std::vector<pollfd> states;
    for (const Descriptor& connection : connections_)
        states.push_back({connection.get(), POLLRDHUP, 0});
    if (::poll(states.data(), states.size(), 0) <= 0)
        return;
    auto state = states.begin();
    std::erase_if(connections_, [&](const Descriptor& connection) {
        const bool isGone = (state++)->revents != 0;
        if (isGone)
            poll_.remove(connection.get());
        return isGone;
    });
}
