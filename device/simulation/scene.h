#pragma once

#include "apps/common/event/serverconnection.h"
#include "device/simulation/actor.h"

#include <memory>
#include <vector>

/// All actors in the order in which they were added: each sees the changes of those before it in the same
/// step.
class Scene : public ServerConnection::EventHandler {
public:
    void add(std::unique_ptr<Actor> actor, double intervalMs);

    /// Steps the actors whose interval has passed.
    void step(double timeMs);

    /// Ids of the events that the actors handle.
    std::vector<std::uint32_t> interests() const;

    /// Passes a change to all actors.
    void handleEvent(const Notify& event) override;

private:
    struct Part {
        std::unique_ptr<Actor> actor;
        double intervalMs;
        double nextMs;
    };

    std::vector<Part> parts_;
};
