#include "device/simulation/contentparts.h"
#include "device/simulation/scale.h"
#include "device/simulation/variable.h"

#include <cstdio>
#include <string>

namespace {

constexpr double FEET_PER_METRE = 1 / 0.3048;
constexpr int SCALE_POINTS = 12;

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", value);
    return text;
}

void fillLensFiles() {
    constexpr const char* LENSES[] = {"Zoom 19.5-94 T2.6", "Prime 18 T1.8", "Prime 25 T1.8", "Prime 35 T1.8",
                                      "Prime 50 T1.8",     "Prime 75 T1.8", "Prime 100 T2",  "Macro 60 T3.1"};
    constexpr int RECENT = 4;
    Variable files("LensFileList");
    Variable recent("MruLensFileList");
    int count = 0;
    for (const char* lens : LENSES) {
        const char* const isActive = count == 0 ? "true" : "false";
        const Variable::Members members = {
            {"LensFileName", lens}, {"LensFileValid", "true"}, {"LensFileActive", isActive}};
        files.setElement(count, members);
        if (count < RECENT)
            recent.setElement(count, members);
        ++count;
    }
    Variable("LensFileListSize").setInt(count);
    Variable("MruLensFileListSize").setInt(RECENT);
    Variable("ActivateLensFileName").setText(LENSES[0]);
}

// Fills a scale of the lens with evenly spaced points; `factor` converts the ring's values to the scale's
// unit.
void fillScale(const char* table, const char* axis, const char* unit, const Scale& scale, double factor) {
    Variable variable(table);
    std::string engraved;
    for (int point = 0; point < SCALE_POINTS; ++point) {
        const double position = point / (SCALE_POINTS - 1.0);
        const std::string value = number(scale.value(position) * factor);
        const std::string place = std::to_string(point);
        variable.setElement(
            0, {{("Value" + place).c_str(), value}, {("Position" + place).c_str(), number(position)}});
        engraved += value + " " + number(position) + "\n";
    }
    variable.setElement(0, {{"LensTableAxis", axis},
                            {"LensTableUnit", unit},
                            {"LensTableMinValue", number(scale.value(0) * factor)},
                            {"LensTableMaxValue", number(scale.value(1) * factor)},
                            {"LensTablePointCount", std::to_string(SCALE_POINTS)},
                            {"LensTableValid", "true"},
                            {"LensTableText", engraved}});
}

void fillDescription() {
    Variable("LensTableDescription")
        .setElement(0, {{"LensDescBrand", "Custom"},
                        {"LensDescType", "LDALens"},
                        {"LensDescFocalLength", "Zoom"},
                        {"LensDescName", "Zoom 19.5-94 T2.6"},
                        {"LensDescSerialNumber", "4471"},
                        {"LensDescFocusFarEnd", "Infinity"},
                        {"LensDescFocusNearEnd", "Close"},
                        {"LensDescMinFocalLength", "19.5"},
                        {"LensDescMaxFocalLength", "94"},
                        {"LensDescMinTStop", "2.6"},
                        {"LensDescMaxTStop", "22"},
                        {"LensDescCloseFocus", "0.45"},
                        {"LensDescImageCircle", "31.1"},
                        {"LensDescSqueezeFactor", "1"},
                        {"LensDescFrontDiameter", "114"},
                        {"LensDescWeight", "2.9"},
                        {"LensDescCreated", "2025-02-03"},
                        {"LensDescChanged", "2026-01-20"},
                        {"LensDescComment", "Engraved in metres."}});
}

} // namespace

void fillLens() {
    fillLensFiles();
    fillScale("LensTableFocusMeter", "Focus", "Meter", FOCUS_SCALE, 1);
    fillScale("LensTableFocusImperial", "Focus", "Feet", FOCUS_SCALE, FEET_PER_METRE);
    fillScale("LensTableIris", "Iris", "Meter", IRIS_SCALE, 1);
    fillScale("LensTableZoom", "Zoom", "Meter", ZOOM_SCALE, 1);
    fillDescription();
}
