#pragma once

#include "device/simulation/actor.h"
#include "device/simulation/variable.h"

/// The values that depend on the lens position: focal length, depth of field, the values that the camera
/// shows.
class Optics : public Actor {
public:
    void step(double timeMs) override;

private:
    void showFocusDistance(double metres);
    void showDepthOfField(double metres, double focalLength, double stop);

    Variable focus_{"LensActFocus"};
    Variable iris_{"LensActIris"};
    Variable zoom_{"LensActZoom"};
    Variable circleOfConfusion_{"CircleofConfusion"};
    Variable focalLength_{"FocalLength"};
    Variable cameraFocalLength_{"CamFocalLength"};
    Variable near_{"DofNearValue"};
    Variable far_{"DofFarValue"};
    Variable cameraMeter_{"CamFocusDistanceMeter"};
    Variable cameraFeet_{"CamFocusDistanceFeet"};
    Variable cameraInch_{"CamFocusDistanceInch"};
    Variable cameraStop_{"CamTStopString"};
};
