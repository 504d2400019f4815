#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/files/descriptor.h"

#include <vector>

/// Connections beyond the limit of unfinished requests: neither read nor answered, and closed when the client
/// disconnects, so that they do not use up the process's descriptors.
class ParkedConnections : public EventPoll::Callback {
public:
    /// `poll` must outlive the object.
    explicit ParkedConnections(EventPoll& poll) : poll_(poll) {}
    ~ParkedConnections() override;
    ParkedConnections(const ParkedConnections&) = delete;
    ParkedConnections& operator=(const ParkedConnections&) = delete;

    void add(Descriptor connection);

    /// Closes the connections whose clients have disconnected.
    void event(EventType type) override;

private:
    EventPoll& poll_;
    std::vector<Descriptor> connections_;
};
