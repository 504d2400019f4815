#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

#include <string>

/// The camera: runs and stops by itself, when the record button is pressed, and when another process sets its
/// state. Each run adds a clip to the medium. In any state other than "Standby" and "Run" it waits for the
/// next change of the state.
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
    double enteredMs_ = 0; ///< start of the present state
    int clipNumber_ = 0;
};
