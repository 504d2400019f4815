#include "device/simulation/camera.h"
#include "device/simulation/content.h"
#include "device/simulation/lensaxis.h"
#include "device/simulation/optics.h"
#include "device/simulation/options.h"
#include "device/simulation/puller.h"
#include "device/simulation/radio.h"
#include "device/simulation/settings.h"
#include "device/simulation/soak.h"
#include "simulationfixture.h"

#include <gtest/gtest.h>

namespace {

const LensAxis::Names FOCUS = {"FocusTargetValue", "FocusActPosNorm", "FocusMotor", "LensActFocus"};

TEST_F(SimulationTest, AllContentStaysWithinItsBounds) {
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
        for (std::uint32_t var = 0; var < MEMORY_ARRAY[mem].count; ++var) {
            Variable variable(mem, var);
            const int type = variable.row().baseType;
            if (type == BASE_INT || type == BASE_FLOAT) {
                EXPECT_NO_THROW(variable.setText(variable.text())) << variable.name();
            } else if (type == BASE_ENUM) {
                EXPECT_EQ(variable.text().find("INVALID"), std::string::npos) << variable.name();
            }
        }
    }
    EXPECT_EQ(Variable("AppServiceLogLevel").text(), "LogLight");
}

TEST_F(SimulationTest, AMotorFollowsItsTargetSmoothlyAndArrives) {
    add<LensAxis>(FOCUS, FOCUS_SCALE);
    Variable("FocusTargetValue").setFloat(0.6);
    Variable position("FocusActPosNorm");
    float last = position.toFloat();
    for (double end = 40; end < 3000; end += 40) {
        playTo(end);
        EXPECT_LE(position.toFloat(), last);
        EXPECT_LT(last - position.toFloat(), 0.06F);
        last = position.toFloat();
    }
    EXPECT_FLOAT_EQ(Variable("LensActFocus").toFloat(), 0.6F);
    Variable("FocusTargetValue").setFloat(-5);
    playTo(6000);
    EXPECT_EQ(position.toFloat(), 0.0F);
}

TEST_F(SimulationTest, AHandPullsFromMarkToMarkAndLetsGoWhenOthersSteer) {
    add<Puller>("Knob", "FocusTargetValue", FOCUS_SCALE,
                std::vector<Puller::Mark>{{0.2, 1000, 500}, {0.8, 1000, 500}});
    Variable knob("Knob");
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

TEST_F(SimulationTest, DepthOfFieldHoldsTheFocusAndEndsAtInfinity) {
    add<LensAxis>(FOCUS, FOCUS_SCALE);
    add<Optics>();
    Variable("FocusTargetValue").setFloat(2);
    playTo(3000);
    EXPECT_LT(Variable("DofNearValue").toFloat(), 2);
    EXPECT_GT(Variable("DofFarValue").toFloat(), 2);
    EXPECT_EQ(Variable("CamFocusDistanceFeet").toInt(), 6);
    EXPECT_EQ(Variable("CamFocusDistanceInch").toInt(), 7);
    Variable("FocusTargetValue").setFloat(900);
    playTo(6000);
    EXPECT_EQ(Variable("DofFarValue").toFloat(), 1000);
}

TEST_F(SimulationTest, TheCameraRunsWhenAskedAndLeavesAClip) {
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
}

TEST_F(SimulationTest, AFullMediumIsChanged) {
    add<Camera>();
    Variable("CamClipList0Size").setInt(500);
    Variable("CamState").setText("Run");
    playTo(100);
    Variable("CamState").setText("Error");
    playTo(60000);
    EXPECT_EQ(Variable("CamClipList0Size").toInt(), 1);
    EXPECT_EQ(Variable("CamState").text(), "Error");
}

TEST_F(SimulationTest, WhatIsAskedForIsDone) {
    add<Settings>();
    setFromElsewhere("FocusTorqueSet", "4");
    EXPECT_EQ(Variable("FocusTorque").toInt(), 4);
    setFromElsewhere("CamSpeedSet", "2");
    EXPECT_EQ(Variable("CamSpeedAct").toFloat(), 25);
    setFromElsewhere("CamSpeedSet", "119");
    EXPECT_EQ(Variable("CamSpeedAct").toFloat(), 25);
    for (const bool isOn : {true, false}) {
        setFromElsewhere("CamSDIPeakingToggle", "true");
        EXPECT_EQ(Variable("CamSDIPeaking").toBool(), isOn);
        EXPECT_FALSE(Variable("CamSDIPeakingToggle").toBool());
    }
}

TEST_F(SimulationTest, ARadioWithoutPowerIsSilent) {
    add<Radio>();
    playTo(60000);
    EXPECT_EQ(Variable("RadioState").text(), "Operating");
    Variable("RadioPower").setBool(false);
    playTo(60100);
    EXPECT_EQ(Variable("RadioLinkQuality").toInt(), 0);
}

/// The values of everything that a soak may change.
std::vector<std::string> changeableValues() {
    std::vector<std::string> values;
    for (std::uint32_t mem = 0; mem < MEMORY_ARRAY_SIZE; ++mem) {
        for (std::uint32_t var = 0; var < MEMORY_ARRAY[mem].count; ++var) {
            const Variable variable(mem, var);
            if (variable.row().baseType <= BASE_BOOL) {
                values.push_back(variable.text());
            }
        }
    }
    return values;
}

TEST_F(SimulationTest, ASoakChangesAsManyVariablesAsItWasToldAtEveryStep) {
    Soak soak(50);
    soak.step(0);
    for (int step = 2; step < 1100; ++step) {
        const std::vector<std::string> before = changeableValues();
        EXPECT_NO_THROW(soak.step(0));
        const std::vector<std::string> after = changeableValues();
        std::size_t changed = 0;
        for (std::size_t i = 0; i < after.size(); ++i) {
            changed += before[i] == after[i] ? 0U : 1U;
        }
        ASSERT_EQ(changed, 50U) << "at step " << step;
    }
}

TEST_F(SimulationTest, TheValuesOfASoakCanBeForetold) {
    Soak soak(500);
    for (int step = 1; step <= 7; ++step) {
        soak.step(0);
    }
    // The first candidates: RadioPower, RadioBoost, FocusTorque (1 to 4) are its variables 0, 1 and 2.
    EXPECT_TRUE(Variable("RadioPower").toBool());
    EXPECT_FALSE(Variable("RadioBoost").toBool());
    EXPECT_EQ(Variable("FocusTorque").toInt(), 1 + (7 + 2) % 4);
    EXPECT_FALSE(Variable("VariableLogging").toBool());
    EXPECT_THROW(Soak(5000), std::runtime_error);
}

TEST(Scale, PositionsAndValuesAnswerEachOther) {
    for (const Scale& scale : {FOCUS_SCALE, IRIS_SCALE, ZOOM_SCALE, AUX_SCALE}) {
        for (const double position : {0.0, 0.25, 0.5, 0.99, 1.0}) {
            EXPECT_NEAR(scale.position(scale.value(position)), position, 1e-9);
        }
        EXPECT_EQ(scale.position(-1), 0);
        EXPECT_EQ(scale.position(1e9), 1);
        EXPECT_EQ(scale.position(std::numeric_limits<double>::quiet_NaN()), 0);
    }
}

TEST(Options, WhatIsNotUnderstoodIsRefused) {
    const auto parse = [](std::vector<const char*> words) {
        words.push_back(nullptr);
        return parseOptions(static_cast<int>(words.size()) - 1, const_cast<char* const*>(words.data()));
    };
    const Options options = parse({"", "--changes", "50", "--interval", "20"});
    EXPECT_EQ(options.changes, 50U);
    EXPECT_EQ(options.intervalMs, 20);
    EXPECT_TRUE(parse({"", "--still"}).isStill);
    for (const std::vector<const char*>& words :
         std::vector<std::vector<const char*>>{{"", "--quick"},
                                               {"", "--changes"},
                                               {"", "--changes", "x"},
                                               {"", "--speed", "0"},
                                               {"", "--speed", "2x"}}) {
        EXPECT_THROW(parse(words), std::runtime_error);
    }
}

} // namespace
