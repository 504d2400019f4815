#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

/// The radio link to the motor controller on the camera: as its carrier walks about, the signal gets weaker
/// and stronger, and a weak one loses frames.
class Radio : public Actor {
public:
    void step(double timeMs) override;

private:
    Variable power_{"RadioPower"};
    Variable state_{"RadioState"};
    Variable strength_{"RadioRSSI"};
    Variable quality_{"RadioLinkQuality"};
    Variable lostFrames_{"LostFrameCounter"};
    Variable clients_{"RadioClientNr"};
};
