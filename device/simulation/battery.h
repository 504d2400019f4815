#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

/// The battery: discharges, is replaced by a full one, and warms up under load.
class Battery : public Actor {
public:
    void step(double timeMs) override;

private:
    Variable percent_{"BattPercent"};
    Variable voltage_{"BattVoltage"};
    Variable current_{"BattCurrent"};
    Variable temperature_{"BattTemperature"};
    Variable supplyVoltage_{"VoltageBattery"};
    Variable busVoltage_{"VoltageRBus"};
    Variable cameraSupply_{"CamSupply"};
};
