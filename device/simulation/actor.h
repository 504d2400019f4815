#pragma once

#include <cstdint>
#include <vector>

/// A part of the device that acts with time or when a variable changes.
class Actor {
public:
    virtual ~Actor() = default;

    /// Sets the actor's variables to their values at `timeMs`, the scene's time, which never decreases.
    virtual void step(double timeMs) = 0;

    /// Ids of the events that the actor handles.
    virtual std::vector<std::uint32_t> interests() const { return {}; }

    /// Called for each of these events, also when the actor itself has changed the variable.
    virtual void changed(std::uint32_t /*eventId*/) {}
};
