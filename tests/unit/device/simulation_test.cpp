#include "device/simulation/camera.h"
#include "device/simulation/content.h"
#include "device/simulation/lensaxis.h"
#include "device/simulation/optics.h"
#include "device/simulation/puller.h"
#include "device/simulation/settings.h"
#include "device/simulation/soak.h"
#include "simulationfixture.h"

#include <gtest/gtest.h>
#include <utility>

namespace {

const LensAxis::Names FOCUS = {"FocusTargetValue", "FocusActPosNorm", "FocusMotor", "LensActFocus"};

TEST_F(SimulationTest, AMotorFollowsItsTargetSmoothlyAndTheDepthOfFieldHoldsTheFocus) {
    add<LensAxis>(FOCUS, FOCUS_SCALE);
    add<Optics>();
    Variable("FocusTargetValue").setFloat(0.6);
    const Variable position("FocusActPosNorm");
    const Variable focus("LensActFocus");
    float last = position.toFloat();
    while (timeMs_ < 3000) {
        playTo(timeMs_ + 40);
        EXPECT_LE(position.toFloat(), last);
        EXPECT_LT(last - position.toFloat(), 0.06F);
        EXPECT_LT(Variable("DofNearValue").toFloat(), focus.toFloat());
        EXPECT_GT(Variable("DofFarValue").toFloat(), focus.toFloat());
        last = position.toFloat();
    }
    EXPECT_FLOAT_EQ(focus.toFloat(), 0.6F);
    Variable("FocusTargetValue").setFloat(-5);
    playTo(6000);
    EXPECT_EQ(position.toFloat(), 0.0F);
    Variable("FocusTargetValue").setFloat(900);
    playTo(12000);
    EXPECT_EQ(Variable("DofFarValue").toFloat(), 1000) << "infinity";
}

TEST_F(SimulationTest, AHandPullsFromMarkToMarkAndLetsGoWhenOthersSteer) {
    add<Puller>("Knob", "FocusTargetValue", FOCUS_SCALE,
                std::vector<Puller::Mark>{{0.2, 1000, 500}, {0.8, 1000, 500}});
    const Variable knob("Knob");
    Variable target("FocusTargetValue");
    playTo(1400);
    EXPECT_FLOAT_EQ(knob.toFloat(), 0.2F);
    playTo(2800);
    EXPECT_FLOAT_EQ(knob.toFloat(), 0.8F);
    target.setFloat(1.5);
    playTo(15000);
    EXPECT_FLOAT_EQ(target.toFloat(), 1.5F);
    playTo(20000);
    EXPECT_NE(target.toFloat(), 1.5F);
}

TEST_F(SimulationTest, TheCameraRunsWhenAskedLeavesAClipAndAFullMediumIsChanged) {
    add<Camera>();
    playTo(200);
    Variable("RecButtonPressed").setBool(true);
    playTo(2300);
    EXPECT_EQ(Variable("CamState").text(), "Run");
    EXPECT_FALSE(Variable("RecButtonPressed").toBool());
    EXPECT_NEAR(Variable("CamFootage").toFloat(), 2, 0.11);
    Variable("CamState").setText("Standby");
    playTo(2400);
    EXPECT_EQ(Variable("CamClipList0Size").toInt(), 15);
    EXPECT_EQ(Variable("CamClipListLastClip").text(), "A001C015_260314");
    EXPECT_EQ(Variable("CamClipList0EnabledFlags").text().substr(0, 6), "ff7f00");
    Variable("CamClipList0Size").setInt(500);
    Variable("CamState").setText("Run");
    playTo(2500);
    Variable("CamState").setText("Error");
    playTo(60000);
    EXPECT_EQ(Variable("CamClipList0Size").toInt(), 1);
    EXPECT_EQ(Variable("CamState").text(), "Error");
}

TEST_F(SimulationTest, WhatIsAskedForIsDone) {
    add<Settings>();
    setFromElsewhere("FocusTorqueSet", "4");
    EXPECT_EQ(Variable("FocusTorque").toInt(), 4);
    for (const char* place : {"2", "119"}) { // the list ends before the second one
        setFromElsewhere("CamSpeedSet", place);
        EXPECT_EQ(Variable("CamSpeedAct").toFloat(), 25);
    }
    for (const bool isOn : {true, false}) {
        setFromElsewhere("CamSDIPeakingToggle", "true");
        EXPECT_EQ(Variable("CamSDIPeaking").toBool(), isOn);
        EXPECT_FALSE(Variable("CamSDIPeakingToggle").toBool());
    }
}

TEST_F(SimulationTest, ASoakChangesAsManyVariablesAsItWasToldAtEveryStepToValuesThatCanBeForetold) {
    std::vector<std::pair<Variable, std::string>> values;
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
        for (std::uint32_t var = 0; var < MEMORY_ARRAY[mem].count; ++var)
            if (MEMORY_ARRAY[mem].variables[var].baseType <= BaseBool)
                values.emplace_back(Variable(mem, var), "");
    }
    Soak soak(50);
    for (int step = 1; step < 1100; ++step) {
        EXPECT_NO_THROW(soak.step(0));
        int changed = 0;
        for (auto& [variable, last] : values) {
            const std::string former = std::exchange(last, variable.text());
            changed += former == last ? 0 : 1;
        }
        ASSERT_TRUE(step == 1 || changed == 50) << changed << " changed at step " << step;
    }
    Soak large(500);
    for (int step = 1; step <= 7; ++step)
        large.step(0);
    // The first candidates: RadioPower, RadioBoost, FocusTorque (1 to 4) are its variables 0, 1 and 2.
    EXPECT_TRUE(Variable("RadioPower").toBool());
    EXPECT_FALSE(Variable("RadioBoost").toBool());
    EXPECT_EQ(Variable("FocusTorque").toInt(), 1 + (7 + 2) % 4);
    EXPECT_THROW(Soak(5000), std::runtime_error);
}

} // namespace
