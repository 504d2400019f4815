#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

/// The radio link to the motor controller on the camera: the signal becomes weaker and stronger, and a weak
/// signal loses frames.
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
