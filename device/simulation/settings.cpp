#include "device/simulation/settings.h"

#include "device/simulation/content.h"

#include <utility>

Settings::Settings() {
    follow("FocusTorqueSet", "FocusTorque");
    follow("IrisTorqueSet", "IrisTorque");
    follow("ZoomTorqueSet", "ZoomTorque");
    follow("AUXTorqueSet", "AUXTorque");
    follow("DataSourceSet", "DataSource");
    follow("CamSpeedCustomSet", "CamSpeedAct");
    follow("CamShutterCustomSet", "CamShutterAct");
    follow("CamWhiteBalanceCustomSet", "CamWhiteBalanceAct");
    follow("CamWhiteBalanceCustomTintSet", "CamWhiteBalanceTintAct");
    follow("CamExposureTimeCustomSet", "CamExposureTimeAct");
    follow("CamNdFilterSet", "CamNdFilterAct");
    follow("CamSDIStatusInfoSet", "CamSDIStatusInfoAct");
    choose("CamSpeedSet", "CamSpeedAct", SPEEDS);
    choose("CamShutterSet", "CamShutterAct", SHUTTERS);
    choose("CamExposureIndexSet", "CamExposureIndexAct", EXPOSURE_INDEXES);
    choose("CamWhiteBalanceSet", "CamWhiteBalanceAct", WHITE_BALANCES);
    for (const char* shown : {"Peaking", "SurroundView", "ExposureTool", "Framelines", "Zoom", "Anamorphic",
                              "Look", "ColorBars", "ImageFlip", "ReturnIn"}) {
        const std::string actual = std::string("CamSDI") + shown;
        turnOver(actual, actual + "Toggle");
    }
}

std::vector<std::uint32_t> Settings::interests() const {
    std::vector<std::uint32_t> ids;
    for (const Reaction& reaction : reactions_)
        ids.push_back(reaction.asked.eventId());
    return ids;
}

void Settings::changed(std::uint32_t eventId) {
    for (Reaction& reaction : reactions_)
        if (reaction.asked.eventId() == eventId)
            reaction.react(reaction.asked);
}

void Settings::follow(const char* asked, const char* actual) {
    reactions_.push_back({Variable(asked), [target = Variable(actual)](
                                               Variable& source) mutable { target.setText(source.text()); }});
}

void Settings::choose(const char* asked, const char* actual, std::vector<double> list) {
    reactions_.push_back({Variable(asked),
                          [target = Variable(actual), list = std::move(list)](Variable& source) mutable {
                              const auto place = static_cast<std::size_t>(source.toInt());
                              if (place < list.size())
                                  target.setFloat(list[place]);
                          }});
}

void Settings::turnOver(const std::string& actual, const std::string& toggle) {
    reactions_.push_back({Variable(toggle),
                          [target = Variable(actual)](Variable& source) mutable {
                              if (source.toBool()) {
                                  target.setBool(!target.toBool());
                                  source.setBool(false);
                              }
                          }});
}
