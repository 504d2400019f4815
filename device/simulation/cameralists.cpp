#include "device/simulation/content.h"
#include "device/simulation/contentparts.h"

#include <cstdio>

const std::vector<double> SPEEDS = {23.976, 24, 25, 29.97, 30, 48, 50, 59.94, 60, 75, 90, 100, 120};
const std::vector<double> SHUTTERS = {11.2, 45, 90, 172.8, 180, 270, 356};
const std::vector<double> EXPOSURE_INDEXES = {200, 400, 500, 800, 1280, 1600, 3200};
const std::vector<double> WHITE_BALANCES = {3200, 4300, 5000, 5600, 6500, 7500};

namespace {

constexpr int FIRST_CLIPS = 14;
constexpr int CLIP_FLAG_BYTES = 64;
constexpr double CLIP_SPEED = 24;

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// Fills the list "Cam<what>List"; an element has a value, the text to show for it, and the flag "supported".
void fillChoices(const std::string& what, const std::vector<double>& values, const char* unit) {
    Variable list("Cam" + what + "List");
    int count = 0;
    for (const double value : values) {
        list.setElement(count++, {{("Cam" + what + "Value").c_str(), number(value)},
                                  {("Cam" + what + "Text").c_str(), number(value) + unit},
                                  {("Cam" + what + "Supported").c_str(), "true"}});
    }
    Variable("Cam" + what + "ListSize").setInt(count);
}

void fillUserButtons() {
    constexpr const char* FUNCTIONS[] = {"Peaking", "False Color", "Frame Lines", "Playback"};
    Variable list("CamUserButtons");
    int count = 0;
    for (const char* function : FUNCTIONS) {
        list.setElement(count, {{"CamUserButtonName", "USER " + std::to_string(count + 1)},
                                {"CamUserButtonFunction", function},
                                {"CamUserButtonAvailable", "true"}});
        ++count;
    }
    Variable("CamUserButtonsNumber").setInt(count);
}

void fillSupplies() {
    Variable supplies("CamSupply");
    supplies.setElement(
        0, {{"CamSupplyName", "BAT1"}, {"CamSupplyValue", "25.6"}, {"CamSupplyPresent", "true"}});
    supplies.setElement(1,
                        {{"CamSupplyName", "BAT2"}, {"CamSupplyValue", "71"}, {"CamSupplyPresent", "true"}});
    Variable("CamSupplyUnit1").setText("Percent");
}

void fillInformation() {
    Variable info("CamLiveCamInfoList");
    info.setElement(0, {{"CamTextLabel", "Project"}, {"CamText", "Night Train – Café"}});
    info.setElement(1, {{"CamTextLabel", "Scene"}, {"CamText", "42B take 3"}});
    Variable("CamLiveCamInfoListSize").setInt(2);
    Variable setups("CamUserSetupList");
    setups.setElement(0, {{"CamUserSetupName", "Day exterior"}, {"CamUserSetupSupported", "true"}});
    Variable("CamUserSetupListSize").setInt(1);
}

void fillClips() {
    Variable list("CamClipList0");
    for (int place = 0; place < FIRST_CLIPS; ++place)
        showClip(list, place, place + 1, 240 + 97 * place, CLIP_SPEED);
    Variable("CamClipList0MediumName").setText("A001");
    Variable("CamClipList0Size").setInt(FIRST_CLIPS);
    Variable("CamClipList0EnabledFlags").setText(clipFlags(FIRST_CLIPS));
    Variable("CamClipListNumber").setInt(1);
    Variable("CamClipListLastClip").setText(clipName(FIRST_CLIPS));
    Variable("CamClipListPlayable").setBool(true);
}

} // namespace

void fillCameraLists() {
    fillChoices("Speed", SPEEDS, " fps");
    fillChoices("Shutter", SHUTTERS, "°");
    fillChoices("ExposureIndex", EXPOSURE_INDEXES, "");
    fillChoices("WhiteBalance", WHITE_BALANCES, " K");
    fillChoices("NdFilter", {0, 0.6, 1.2, 1.8}, " ND");
    fillChoices("ExposureTime", {24, 48, 50, 60, 96, 100, 120}, " 1/s");
    fillUserButtons();
    fillSupplies();
    fillInformation();
    fillClips();
}

std::string clipName(int number) {
    char name[24];
    std::snprintf(name, sizeof name, "A001C%03d_260314", number % 1000);
    return name;
}

void showClip(Variable& list, int place, int number, int frames, double speed) {
    list.setElement(place, {{"CamClipName", clipName(number)},
                            {"CamClipDescription", "Scene 42B take " + std::to_string(number)},
                            {"CamClipFrameCount", std::to_string(frames)},
                            {"CamClipSpeed", std::to_string(speed)},
                            {"CamClipPlayable", "true"}});
}

std::string clipFlags(int count) {
    std::string text;
    for (int byte = 0; byte < CLIP_FLAG_BYTES; ++byte) {
        unsigned int bits = 0;
        for (int bit = 0; bit < 8; ++bit)
            bits |= byte * 8 + bit < count ? 1U << bit : 0U;
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bits & 0xffU);
        text += digits;
    }
    return text;
}
