#include "apps/common/introspection/introspection.h"
#include "device/simulation/accessorybus.h"
#include "device/simulation/accessoryupdater.h"
#include "device/simulation/hostupdater.h"
#include "device/simulation/updatefile.h"
#include "simulationfixture.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

class UpdaterTest : public SimulationTest {
protected:
    ~UpdaterTest() override { std::filesystem::remove(path_); }

    UpdateFile read(const std::string& content) {
        std::ofstream(path_) << content;
        return readUpdateFile(path_);
    }

    // Plays up to `endMs` and returns the states that the variable goes through.
    std::string statesTo(double endMs, const char* variable) {
        std::string states;
        for (std::string last; timeMs_ < endMs; timeMs_ += 40) {
            scene_.step(timeMs_);
            if (last != Variable(variable).text())
                states += (last = Variable(variable).text()) + " ";
        }
        return states;
    }

    std::string hostStates(const std::string& content) {
        read(content);
        setFromElsewhere("HostUpdateFileName", path_.c_str());
        return statesTo(timeMs_ + 2000, "HostUpdateFileState");
    }

    std::string accessoryStates(const std::string& content, const char* serial = "5512") {
        read(content);
        setFromElsewhere("RBusUpdateFileName", path_.c_str());
        Variable("RBusUpdateDeviceName").setText("Ultrasonic Ranger");
        Variable("RBusUpdateDeviceSerial").setText(serial);
        return statesTo(timeMs_ + 2000, "RBusUpdateState");
    }

    const std::string path_ = "/tmp/updater-" + std::to_string(getpid());
    AccessoryList list_;
};

TEST_F(UpdaterTest, AFirmwareFileIsKnownByItsFirstLine) {
    EXPECT_EQ(read("firmware;A;1;16").verdict, "FileValid");
    EXPECT_EQ(read("firmware;A;1.2.3;1;fails\r\n" + std::string(1000, '\0')).verdict, "FileValid");
    for (const char* content :
         {"", "firmware", "Firmware;A;1;1\n", "firmware;;1;1\n", "firmware;A;;1\n", "firmware;A;1;0\n",
          "firmware;A;1;17\n", "firmware;A;1;x\n", "firmware;A;12345678901234567890;1\n", "firmware;A;1;1;\n",
          "\nfirmware;A;1;1\n"})
        EXPECT_EQ(read(content).verdict, "FileCorrupt") << content;
    EXPECT_EQ(readUpdateFile("/tmp").verdict, "FileCorrupt");
    EXPECT_EQ(readUpdateFile("/nonexistent").verdict, "FileNotFound");
}

TEST_F(UpdaterTest, TheControllerRefusesWhatIsNotForItAndGoesThroughItsUpdateOnceItIsTold) {
    add<HostUpdater>();
    EXPECT_EQ(hostStates("something"), "CheckingFile FileCorrupt ");
    EXPECT_EQ(hostStates("firmware;Other;4.3.0;1"), "CheckingFile FileNotCompatible ");
    EXPECT_EQ(hostStates("firmware;Lens Control;4.3.0;1;fails"), "CheckingFile FileValid ");
    Variable("HostUpdateStart").setBool(true);
    EXPECT_EQ(statesTo(timeMs_ + 20000, "HostUpdateFileState"), "CopyingFile CopyingFailed ");
    EXPECT_EQ(Variable("ProductVersion").text(), "4.2.0");
    EXPECT_EQ(hostStates("firmware;Lens Control;4.3.0;1\n"), "CheckingFile FileValid ");
    EXPECT_EQ(Variable("HostUpdateFileFirmwareVersion").text(), "4.3.0");
    Variable("HostUpdateStart").setBool(true);
    EXPECT_EQ(statesTo(timeMs_ + 20000, "HostUpdateFileState"), "CopyingFile Rebooting Success ");
    EXPECT_EQ(Variable("ProductVersion").text(), "4.3.0");
    EXPECT_FALSE(Variable("HostUpdateStart").toBool());
    EXPECT_EQ(Variable("HostUpdateFileName").text(), "") << "so that the next upload is a change";
}

TEST_F(UpdaterTest, AnAccessorysUpdateFailsForEachOfItsReasonsOrIsWrittenPartByPart) {
    add<AccessoryUpdater>();
    const std::string good = "firmware;Ultrasonic Ranger;2.0.0;2";
    const int place = list_.find("Ultrasonic Ranger", 5512);
    EXPECT_EQ(accessoryStates(good, "5513"), "CheckingFile DeviceNotFound ");
    EXPECT_EQ(accessoryStates("x"), "CheckingFile FileCorrupt ");
    EXPECT_EQ(accessoryStates("firmware;Other;2.0.0;2"), "CheckingFile FileNotCompatible ");
    EXPECT_EQ(accessoryStates(good + ";fails"), "CheckingFile FileValid ");
    Variable("RBusUpdateStart").setBool(true);
    EXPECT_EQ(statesTo(timeMs_ + 10000, "RBusUpdateState"), "CopyingFile Failed ");
    EXPECT_EQ(Variable("RBusUpdateIndex").toInt(), 1);
    accessoryStates(good);
    Variable("RBusUpdateStart").setBool(true);
    playTo(timeMs_ + 3800);
    EXPECT_EQ(Variable("RBusUpdateCount").toInt(), 2);
    EXPECT_EQ(Variable("RBusUpdateIndex").toInt(), 1);
    EXPECT_NEAR(Variable("RBusUpdateProgress").toInt(), 50, 3);
    EXPECT_EQ(Variable("RBusUpdatePartName").text(), "Part 2");
    list_.setConnected(place, false);
    EXPECT_EQ(statesTo(timeMs_ + 1000, "RBusUpdateState"), "Failed ");
    list_.setConnected(place, true);
    accessoryStates(good);
    Variable("RBusUpdateStart").setBool(true);
    EXPECT_EQ(statesTo(timeMs_ + 6000, "RBusUpdateState"), "CopyingFile Rebooting ");
    EXPECT_FALSE(list_.isConnected(place));
    EXPECT_EQ(statesTo(timeMs_ + 3000, "RBusUpdateState"), "Rebooting Success ");
    EXPECT_TRUE(list_.isConnected(place));
    EXPECT_NE(Introspection::getVarValue(7, 1, place).find(R"("RBusMainSwVersion":"2.0.0")"),
              std::string::npos);
}

TEST_F(UpdaterTest, AnAccessoryComesAndGoesUnlessOneIsBeingUpdated) {
    add<AccessoryBus>("Lens Data Display", 880213);
    const int place = list_.find("Lens Data Display", 880213);
    for (const auto& [endMs, isConnected] : {std::pair{44000, true}, {46000, false}, {60000, true}}) {
        playTo(endMs);
        EXPECT_EQ(list_.isConnected(place), isConnected) << endMs;
    }
    Variable("RBusUpdateState").setText("CopyingFile");
    playTo(105000);
    EXPECT_TRUE(list_.isConnected(place));
}

} // namespace
