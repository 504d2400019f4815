#pragma once

#include "apps/common/event/eventpoll.h"

#include <poll.h>
#include <vector>

/// Connections that came when every place was taken. They are left alone, neither read nor answered, but a
/// descriptor is closed once its peer has gone: clients that knock in vain must not use up the process's
/// descriptors.
class ParkedConnections : public EventPoll::Callback {
public:
    /// `poll` must outlive the object.
    explicit ParkedConnections(EventPoll& poll) : poll_(poll) {}
    ~ParkedConnections() override;
    ParkedConnections(const ParkedConnections&) = delete;
    ParkedConnections& operator=(const ParkedConnections&) = delete;

    /// Takes ownership of the descriptor.
    void add(int fd);

    /// Closes those whose peers have gone.
    void event(EventType type) override;

private:
    EventPoll& poll_;
    std::vector<pollfd> connections_;
};
