#pragma once

#include "device/simulation/variable.h"

#include <array>
#include <string>

/// The values on the controller's screen.
struct Reading {
    static constexpr std::size_t MARKERS = 8;

    struct Axis {
        double value = 0;
        double target = 0;
        bool operator==(const Axis&) const = default;
    };

    Axis focus; ///< metres
    Axis iris;  ///< T-stops
    Axis zoom;  ///< millimetres
    double nearMetres = 0;
    double farMetres = 0;
    std::array<double, MARKERS> markers{}; ///< metres; 0 for no marker
    bool isInFeet = false;

    std::string lens;
    std::string cameraIndex;
    std::string cameraState;
    std::string codec;
    double footageSeconds = 0;
    double framesPerSecond = 0;
    double shutterDegrees = 0;
    int exposureIndex = 0;
    int whiteBalanceKelvin = 0;

    int batteryPercent = 0;
    bool isRadioOn = false;
    int radioChannel = 0;
    int radioPercent = 0;

    bool operator==(const Reading&) const = default;
};

/// Reads the memories. REQUIRES: the memories are mapped.
class Reader {
public:
    Reader();

    Reading read() const;

private:
    struct Axis {
        Variable value;
        Variable target;
        Reading::Axis read() const { return {value.toFloat(), target.toFloat()}; }
    };

    void readCamera(Reading& reading) const;

    Axis focus_{Variable("LensActFocus"), Variable("FocusTargetValue")};
    Axis iris_{Variable("LensActIris"), Variable("IrisTargetValue")};
    Axis zoom_{Variable("LensActZoom"), Variable("ZoomTargetValue")};
    Variable near_{"DofNearValue"};
    Variable far_{"DofFarValue"};
    std::vector<Variable> markers_;
    Variable unit_{"DisplayUnit"};
    Variable lens_{"ActivateLensFileName"};
    Variable cameraIndex_{"CamIndex"};
    Variable cameraState_{"CamState"};
    Variable codec_{"CamMediaCodec"};
    Variable footage_{"CamFootage"};
    Variable speed_{"CamSpeedAct"};
    Variable shutter_{"CamShutterAct"};
    Variable exposureIndex_{"CamExposureIndexAct"};
    Variable whiteBalance_{"CamWhiteBalanceAct"};
    Variable battery_{"BattPercent"};
    Variable radioState_{"RadioState"};
    Variable radioChannel_{"RadioChannel"};
    Variable radioQuality_{"RadioLinkQuality"};
};
