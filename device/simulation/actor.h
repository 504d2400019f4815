#pragma once

#include <cstdint>
#include <vector>

/// A part of the device that does something as time goes by, or when a variable changes.
class Actor {
public:
    virtual ~Actor() = default;

    /// Brings the actor's variables to where they are at `timeMs`, the scene's time, which never goes back.
    virtual void step(double timeMs) = 0;

    /// Ids of the events that the actor wants to hear of.
    virtual std::vector<std::uint32_t> interests() const { return {}; }

    /// One of these has come. Whoever has changed the variable: it may be the actor itself.
    virtual void changed(std::uint32_t /*eventId*/) {}
};
