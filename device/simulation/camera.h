#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

#include <string>

/// The camera: runs and stops by itself and when the record button is pressed or its state is set from
/// elsewhere. Each run leaves a clip on the medium. In a state other than "Standby" and "Run" it stays until
/// somebody changes it.
class Camera : public Actor {
public:
    Camera();

    void step(double timeMs) override;

private:
    void setRunning(bool isRunning, double timeMs);
    void showState(double timeMs);
    void showFootage(double timeMs);
    void addClip();

    Variable state_{"CamState"};
    Variable button_{"RecButtonPressed"};
    Variable footage_{"CamFootage"};
    Variable runLight_{"LedRunColor"};
    Variable clips_{"CamClipList0"};
    Variable clipCount_{"CamClipList0Size"};
    Variable clipFlags_{"CamClipList0EnabledFlags"};
    Variable lastClip_{"CamClipListLastClip"};
    Variable selectedClip_{"CamClipListClipAct"};
    std::string shownState_;
    double enteredMs_ = 0; ///< when the present state began
    int clipNumber_ = 0;
};
