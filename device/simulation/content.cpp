#include "device/simulation/content.h"

#include "device/simulation/contentparts.h"

#include <cstdlib>

namespace {

struct Value {
    const char* name;
    const char* text;
};

constexpr Value PRODUCT[] = {
    {"ProductName", "Lens Control"},
    {"ProductVersion", "4.2.0"},
    {"ProductSerial", "20117"},
    {"ProductRevision", "C"},
    {"ProductLastCommit", "v4.2.0-0-g3f9c2ab1"},
    {"CpuSerial", "0c16a1d4e0b2"},
    {"ModemVersionString", "2.11.4"},
    {"ModemType", "P2400"},
    {"RadioMacAddress", "02:00:5e:10:20:31"},
    {"RadioMotConMacAddress", "02:00:5e:10:20:74"},
    {"EnableRadioPower", "true"},
    {"OnewireModemConnected", "true"},
};

constexpr Value SETTINGS[] = {
    {"RadioPower", "true"},
    {"FocusTorque", "2"},
    {"IrisTorque", "1"},
    {"ZoomTorque", "3"},
    {"AUXTorque", "2"},
    {"UserButton1", "FocusTracking"},
    {"UserButton2", "Peaking"},
    {"UserButton3", "KnobMarker"},
    {"LandingPage", "LDD"},
    {"KnobAssignment", "Focus"},
    {"SliderAssignment", "Iris"},
    {"ForcePadAssignment", "Zoom"},
    {"GuiDesignIsNightStyle", "true"},
    {"DisplayBrightnessAuto", "true"},
    {"DisplayBrightness", "8"},
    {"ButtonBrightness", "5"},
    {"KnobBrightness", "4"},
    {"KnobColor", "Blue"},
    {"LedRunBrightness", "6"},
    {"ForcePadSpeed", "5"},
    {"CircleofConfusion", "0.025"},
    {"MenuScrollSpeed", "5"},
    {"SoundVolume", "6"},
    {"LensMarkerVibrationEnable", "true"},
    {"RecordingVibrationEnable", "true"},
    {"RecordingVibrationType", "Short"},
    {"PreMarkedRingAutoDet", "true"},
    {"PreMarkedRingMeter", "0.45"},
    {"PreMarkedRingFeet", "1"},
    {"PreMarkedRingInch", "6"},
    {"RecentLensFiles", "true"},
    {"DisplayUnit", "Meter"},
    {"BluetoothPower", "true"},
    {"Language", "English"},
};

constexpr Value POWER_AND_RADIO[] = {
    {"PowerState", "SmartBattery"},   {"BattPercent", "87"},
    {"BattTemperature", "31"},        {"BattVoltage", "8.1"},
    {"BattChargeVoltage", "8.4"},     {"BattCurrent", "0.9"},
    {"VoltageRBus", "24.1"},          {"VoltageBattery", "8.1"},
    {"VoltageIntermediate", "12"},    {"RadioChannel", "4"},
    {"RadioRegion", "Europe"},        {"RadioState", "Operating"},
    {"RadioLinkQuality", "92"},       {"RadioRSSI", "-61"},
    {"RadioClientNr", "1"},           {"RadioChannelMax", "13"},
    {"CanConnectState", "LcsMaster"},
};

constexpr Value OPTICS[] = {
    {"FocusTargetValue", "3"},
    {"IrisTargetValue", "4"},
    {"ZoomTargetValue", "45"},
    {"AuxTargetValue", "0.5"},
    {"LensActFocus", "3"},
    {"LensActIris", "4"},
    {"LensActZoom", "45"},
    {"LastKnownFocusValue", "3"},
    {"LastKnownIrisValue", "4"},
    {"LastKnownZoomValue", "45"},
    {"LensZoomMinValue", "19.5"},
    {"LensZoomMaxValue", "94"},
    {"EntrancePupil", "112"},
    {"LensExtenderFocalLengthMulti", "1"},
    {"LensMarkerFocusValue0", "1.2"},
    {"LensMarkerFocusValue1", "2.5"},
    {"LensMarkerFocusValue2", "6"},
};

constexpr Value CAMERA[] = {
    {"CamDataAvailable", "Available"},
    {"CamState", "Standby"},
    {"CamType", "Ondexa"},
    {"CamFWVersion", "7.3.1"},
    {"CamIndex", "A"},
    {"CamMediaCodec", "RAW 4.5K 16:9"},
    {"CamFootageUnit", "Seconds"},
    {"CamSpeedAct", "24"},
    {"CamSpeedSet", "1"},
    {"CamSpeedCustomSet", "24"},
    {"CamShutterAct", "180"},
    {"CamShutterSet", "4"},
    {"CamShutterCustomSet", "180"},
    {"CamExposureIndexAct", "800"},
    {"CamExposureIndexSet", "3"},
    {"CamWhiteBalanceAct", "5600"},
    {"CamWhiteBalanceSet", "3"},
    {"CamWhiteBalanceCustomSet", "5600"},
    {"CamExposureTimeValid", "true"},
    {"CamExposureTimeAct", "48"},
    {"CamExposureTimeCustomSet", "48"},
    {"CamNdFilterActString", "Clear"},
    {"CamClipListClipAct", "-1"},
    {"CamClipListClipSet", "-1"},
    {"CamClipPlaybackSpeed", "normal"},
    {"LedRunColor", "Green"},
};

constexpr Value REST[] = {
    {"DmdSource", "RBus"},
    {"DmdTargetValue", "3"},
    {"UsbState", "NotConnected"},
    {"EnableMainPower", "true"},
    {"EnableRBusPower", "true"},
    {"EnableDisplay", "true"},
    {"EnableForcePad", "true"},
    {"EnableSpeaker", "true"},
    {"LedPwmDisp", "200"},
    {"VibrationStrength", "60"},
    {"VibrationTicLength", "20"},
    {"VibrationShortLength", "120"},
    {"DateYear", "2026"},
    {"DateMonth", "3"},
    {"DateDay", "14"},
    {"DateHour", "9"},
    {"DateMinute", "30"},
    {"DateTimezone", "Europe/Vienna"},
    {"BluetoothAdapterAvailable", "true"},
    {"UserSetupSelectedFileIndex", "-1"},
};

template <std::size_t COUNT>
void fill(const Value (&values)[COUNT]) {
    for (const Value& value : values)
        Variable(value.name).setText(value.text);
}

// A number whose bounds exclude zero starts at the bound next to zero.
void respectBounds(Variable variable) {
    const VariableDescriptor& row = variable.row();
    if (row.baseType != BaseInt && row.baseType != BaseFloat)
        return;
    if (row.min != nullptr && std::atof(row.min) > 0)
        variable.setText(row.min);
    else if (row.max != nullptr && std::atof(row.max) < 0)
        variable.setText(row.max);
}

void respectBounds() {
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem)
        for (std::uint32_t var = 0; var < MEMORY_ARRAY[mem].count; ++var)
            respectBounds(Variable(mem, var));
}

// Ordinary lines reach the log, debug lines do not.
void fillLogLevels() {
    const MemoryDescriptor& apps = MEMORY_ARRAY[MEMORY_ARRAY_SIZE - 1];
    for (std::uint32_t var = 0; var < apps.count; ++var)
        Variable(MEMORY_ARRAY_SIZE - 1, var).setText("LogLight");
}

} // namespace

void fillContent() {
    fillLogLevels();
    respectBounds();
    fill(PRODUCT);
    fill(SETTINGS);
    fill(POWER_AND_RADIO);
    fill(OPTICS);
    fill(CAMERA);
    fill(REST);
    fillDeviceLists();
    fillLens();
    fillCameraLists();
}
